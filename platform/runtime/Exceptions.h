// The exceptions of the runtime and their raisers. The raisers are the mutators' contract:
// they throw, they are not assertions.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Brix {

class RangeException : public std::out_of_range {
 public:
  using std::out_of_range::out_of_range;
  [[noreturn]] static void throwException(std::string_view text) { throw RangeException(std::string(text)); }
};

// Raised by a read or a walk of a shared-memory table that found it damaged.
class CorruptionDetectedException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Brix

namespace Vok {

class MutatorException : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};
class MutatorArgNullPointerException : public MutatorException {
 public:
  using MutatorException::MutatorException;
};
class MutatorReinstantiatingException : public MutatorException {
 public:
  using MutatorException::MutatorException;
};
class NewEntityArgsException : public MutatorException {
 public:
  using MutatorException::MutatorException;
};
class IndexRangeException : public std::out_of_range {
 public:
  using std::out_of_range::out_of_range;
};

[[noreturn]] void throwMutatorArgNullPointerException(std::string_view type, std::string_view field);
[[noreturn]] void throwMutatorArgNullPointerException(std::string_view text, std::string_view type,
                                                      std::string_view field);
[[noreturn]] void throwMutatorArgNullPointerException(std::string_view text1, std::string_view text2,
                                                      std::string_view type, std::string_view field);
[[noreturn]] void throwNewEntityArgsException(std::string_view type);

namespace Impl {
[[noreturn]] void throwMutatorReinstantiating(std::string_view type, std::string_view field, void const* oldPtr,
                                              void const* newPtr);
[[noreturn]] void throwMutatorReinstVal(std::string_view type, std::string_view field, std::string_view oldValue,
                                        std::string_view newValue);
}  // namespace Impl

namespace PodArrayImpl {
[[noreturn]] void throwRangeException(std::size_t index, std::size_t size);
}

}  // namespace Vok
