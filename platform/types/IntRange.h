// The range test of the range-checked numbers, for an argument of any integral type.
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

namespace IntRange {

// Whether v lies in [lo, hi]; a negative v never does.
template <std::integral T>
constexpr bool contains(T v, std::uint64_t lo, std::uint64_t hi) noexcept {
  if constexpr (std::is_signed_v<T>) {
    if (v < 0) return false;
  }
  auto u = static_cast<std::uint64_t>(v);
  return u >= lo && u <= hi;
}

}  // namespace IntRange
