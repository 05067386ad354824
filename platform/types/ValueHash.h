// Hashing of composite values: every field goes in, so that values that differ in a field
// nobody reads still land apart, and values that compare equal always hash alike.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <tuple>

namespace ValueHash {

// A 64-bit finaliser; the standard hashes of integers are the identity, which combines badly.
constexpr std::uint64_t mix(std::uint64_t x) noexcept {
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdull;
  x ^= x >> 33;
  x *= 0xc4ceb9fe1a85ec53ull;
  x ^= x >> 33;
  return x;
}

constexpr std::size_t combine(std::size_t seed, std::size_t value) noexcept {
  return static_cast<std::size_t>(mix(static_cast<std::uint64_t>(seed) ^
                                      (static_cast<std::uint64_t>(value) + 0x9e3779b97f4a7c15ull + (seed << 6))));
}

// One field: its own hash() where it has one, else std::hash.
template <class T>
std::size_t one(T const& v) {
  if constexpr (requires {
                  { v.hash() } -> std::convertible_to<std::size_t>;
                }) {
    return v.hash();
  } else {
    return std::hash<T>{}(v);
  }
}

// The hash of a sequence of fields, in order.
template <class... Fields>
std::size_t of(Fields const&... fields) {
  std::size_t seed = 0;
  ((seed = combine(seed, one(fields))), ...);
  return seed;
}

// The hash of a record by its declared field list (VOK_FIELDS).
template <class Record>
std::size_t ofFields(Record const& r) {
  return std::apply([](auto const&... fields) { return of(fields...); }, r.vokFields());
}

}  // namespace ValueHash

// A record's field list, declared once in the record: vokFields() gives its fields as a tuple of
// references, read-only or writable, and serves the record's hash, its equality and the codec of
// the peer transport alike.
#define VOK_FIELDS(...)                                                       \
  constexpr auto vokFields() const noexcept { return std::tie(__VA_ARGS__); } \
  constexpr auto vokFields() noexcept { return std::tie(__VA_ARGS__); }

// A std::hash that defers to the value's own hash().
#define VALUE_TYPES_STD_HASH(Type)                                            \
  template <>                                                                 \
  struct std::hash<Type> {                                                    \
    std::size_t operator()(Type const& v) const noexcept { return v.hash(); } \
  }
