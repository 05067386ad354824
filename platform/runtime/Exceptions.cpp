#include "runtime/Exceptions.h"

#include <fmt/format.h>

namespace Vok {

void throwMutatorArgNullPointerException(std::string_view type, std::string_view field) {
  throw MutatorArgNullPointerException(fmt::format("{}::{}: null pointer argument not allowed", type, field));
}

void throwMutatorArgNullPointerException(std::string_view text, std::string_view type, std::string_view field) {
  throw MutatorArgNullPointerException(fmt::format("{}: {}::{}: null pointer argument not allowed", text, type, field));
}

void throwMutatorArgNullPointerException(std::string_view text1, std::string_view text2, std::string_view type,
                                         std::string_view field) {
  throw MutatorArgNullPointerException(
      fmt::format("{} {}: {}::{}: null pointer argument not allowed", text1, text2, type, field));
}

void throwNewEntityArgsException(std::string_view type) {
  throw NewEntityArgsException(fmt::format("{}: created through a directory with arguments, takes none", type));
}

namespace Impl {
void throwMutatorReinstantiating(std::string_view type, std::string_view field, void const* oldPtr,
                                 void const* newPtr) {
  throw MutatorReinstantiatingException(
      fmt::format("{}::{}: entry exists with another argument ({} != {})", type, field, oldPtr, newPtr));
}

void throwMutatorReinstVal(std::string_view type, std::string_view field, std::string_view oldValue,
                           std::string_view newValue) {
  throw MutatorReinstantiatingException(
      fmt::format("{}::{}: entry exists with another value ({} != {})", type, field, oldValue, newValue));
}
}  // namespace Impl

namespace PodArrayImpl {
void throwRangeException(std::size_t index, std::size_t size) {
  throw IndexRangeException(fmt::format("index {} out of range for size {}", index, size));
}
}  // namespace PodArrayImpl

}  // namespace Vok
