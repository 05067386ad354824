// Text forms of enumeration values: the member's name, and for a value without a name either
// "unknown" (stringValue) or its number (operator<<, so that a trace tells such values apart).
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>
#include <type_traits>

namespace EnumText {

constexpr std::string_view orUnknown(std::string_view name) noexcept { return name.empty() ? "unknown" : name; }

template <class E>
std::ostream& put(std::ostream& os, E e, std::string_view name) {
  if (!name.empty()) return os << name;
  return os << static_cast<std::uint64_t>(static_cast<std::underlying_type_t<E>>(e));
}

}  // namespace EnumText
