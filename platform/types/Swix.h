// Swix::FString, a short string with inline storage, for records that live in shared memory.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

#include "runtime/Exceptions.h"
#include "runtime/String.h"
#include "types/ValueHash.h"

namespace Swix {

// A 32-bit length and up to 129 bytes, all in the object itself, so that a record holding one
// stays trivially copyable. The bytes past the length are always zero.
class FString {
 public:
  static constexpr std::size_t maxLength() noexcept { return 129; }

  FString() noexcept = default;
  explicit FString(std::string_view s) {
    if (s.size() > maxLength()) Vok::PodArrayImpl::throwRangeException(maxLength(), s.size());
    length_ = static_cast<std::uint32_t>(s.size());
    if (!s.empty()) std::memcpy(bytes_.data(), s.data(), s.size());
  }
  explicit FString(char const* s) : FString(std::string_view(s ? s : "")) {}
  explicit FString(std::string const& s) : FString(std::string_view(s)) {}
  explicit FString(Brix::String const& s) : FString(s.view()) {}

  std::uint32_t length() const noexcept { return length_; }
  bool empty() const noexcept { return length_ == 0; }
  std::string_view view() const noexcept { return std::string_view(bytes_.data(), length_); }
  Brix::String stringValue() const { return Brix::String(view()); }

  bool isEq(FString const& o) const noexcept { return view() == o.view(); }
  friend bool operator==(FString const& a, FString const& b) noexcept { return a.isEq(b); }
  std::size_t hash() const noexcept { return std::hash<std::string_view>{}(view()); }

 private:
  std::uint32_t length_ = 0;
  std::array<char, 129> bytes_{};
};

std::ostream& operator<<(std::ostream& os, FString const& s);

}  // namespace Swix

VALUE_TYPES_STD_HASH(Swix::FString);
