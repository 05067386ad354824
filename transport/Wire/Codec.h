// The value codec of the peer transport: every value type of the exchanged entities to bytes and
// back. Integers are fixed-size little-endian, enumerations go by their underlying value,
// addresses by their bytes in the order they are written, strings with a 32-bit length in
// front. A record (a type with VOK_FIELDS) is its fields in declared order. A type without a
// codec fails to compile.
//
// Decoding goes through each type's own checked constructor: a value out of its range, like a
// truncated input, raises DecodeError with a one-line message.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/Exceptions.h"
#include "runtime/String.h"
#include "types/Arp.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/L3.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

namespace MlagVxlan::Wire {

// The version of the wire form, for the connection's hello.
inline constexpr std::uint8_t wireVersion = 1;

class DecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Appends to a byte buffer that the caller owns and reuses.
class Writer {
 public:
  explicit Writer(std::vector<std::byte>& out) noexcept : out_(out) {}

  void u8(std::uint8_t v) { out_.push_back(std::byte{v}); }
  // Grows the buffer once per value, not once per byte.
  template <std::unsigned_integral T>
  void uint(T v) {
    std::byte* p = grow(sizeof(T));
    for (std::size_t i = 0; i < sizeof(T); ++i) p[i] = static_cast<std::byte>(v >> (8 * i));
  }
  void bytes(std::span<std::uint8_t const> b) {
    if (!b.empty()) std::memcpy(grow(b.size()), b.data(), b.size());
  }
  void text(std::string_view s) { blob({reinterpret_cast<std::byte const*>(s.data()), s.size()}); }
  // Bytes with a u32 length in front.
  void blob(std::span<std::byte const> b) {
    uint(static_cast<std::uint32_t>(b.size()));
    out_.insert(out_.end(), b.begin(), b.end());
  }
  std::vector<std::byte>& buffer() noexcept { return out_; }

 private:
  std::byte* grow(std::size_t n) {
    std::size_t at = out_.size();
    out_.resize(at + n);
    return out_.data() + at;
  }

  std::vector<std::byte>& out_;
};

// Reads a byte span front to back; reading past its end raises DecodeError.
class Reader {
 public:
  explicit Reader(std::span<std::byte const> in) noexcept : in_(in) {}

  std::uint8_t u8() {
    need(1);
    return static_cast<std::uint8_t>(in_[pos_++]);
  }
  template <std::unsigned_integral T>
  T uint() {
    need(sizeof(T));
    T v = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) v |= static_cast<T>(static_cast<T>(in_[pos_ + i]) << (8 * i));
    pos_ += sizeof(T);
    return v;
  }
  template <std::size_t N>
  std::array<std::uint8_t, N> bytes() {
    need(N);
    std::array<std::uint8_t, N> b{};
    for (std::size_t i = 0; i < N; ++i) b[i] = static_cast<std::uint8_t>(in_[pos_ + i]);
    pos_ += N;
    return b;
  }
  std::string_view text() {
    auto b = blob();
    return {reinterpret_cast<char const*>(b.data()), b.size()};
  }
  std::span<std::byte const> blob() {
    auto n = uint<std::uint32_t>();
    need(n);
    auto b = in_.subspan(pos_, n);
    pos_ += n;
    return b;
  }
  std::size_t offset() const noexcept { return pos_; }
  std::size_t left() const noexcept { return in_.size() - pos_; }
  std::span<std::byte const> consumed(std::size_t from) const noexcept { return in_.subspan(from, pos_ - from); }

 private:
  void need(std::size_t n) const {
    if (left() < n) throw DecodeError(truncatedMessage(n));
  }
  std::string truncatedMessage(std::size_t n) const;

  std::span<std::byte const> in_;
  std::size_t pos_ = 0;
};

// Codec<T>::encode(Writer&, T const&) and Codec<T>::decode(Reader&) -> T. Deliberately left
// undefined: a value type nobody wrote a codec for fails to compile.
template <class T>
struct Codec;

template <class T>
concept Record = requires(T& t, T const& c) {
  t.vokFields();
  c.vokFields();
};

template <class T>
void encode(Writer& w, T const& v) {
  Codec<T>::encode(w, v);
}

// Decodes one value; a range check of the type's own constructor becomes a DecodeError.
template <class T>
T decode(Reader& r) {
  try {
    return Codec<T>::decode(r);
  } catch (Brix::RangeException const& e) {
    throw DecodeError(e.what());
  }
}

template <>
struct Codec<bool> {
  static void encode(Writer& w, bool v) { w.u8(v ? 1 : 0); }
  static bool decode(Reader& r);
};

template <std::unsigned_integral T>
struct Codec<T> {
  static void encode(Writer& w, T v) { w.uint(v); }
  static T decode(Reader& r) { return r.uint<T>(); }
};

template <class T>
requires std::is_enum_v<T>
struct Codec<T> {
  using U = std::make_unsigned_t<std::underlying_type_t<T>>;
  static void encode(Writer& w, T v) { w.uint(static_cast<U>(v)); }
  static T decode(Reader& r) { return static_cast<T>(r.uint<U>()); }
};

// A double goes by its IEEE bits.
template <>
struct Codec<double> {
  static void encode(Writer& w, double v) { w.uint(std::bit_cast<std::uint64_t>(v)); }
  static double decode(Reader& r) { return std::bit_cast<double>(r.uint<std::uint64_t>()); }
};

// A number wrapper: its raw value, made back through its own (checked) constructor.
template <class T, std::unsigned_integral Raw>
struct NumberCodec {
  static void encode(Writer& w, T const& v) { w.uint(static_cast<Raw>(v.value())); }
  static T decode(Reader& r) { return T(r.uint<Raw>()); }
};
template <>
struct Codec<Bridging::VlanId> : NumberCodec<Bridging::VlanId, std::uint16_t> {};
template <>
struct Codec<Bridging::VlanIdOrNone> : NumberCodec<Bridging::VlanIdOrNone, std::uint16_t> {};
template <>
struct Codec<Bridging::ExtendedVlanId> : NumberCodec<Bridging::ExtendedVlanId, std::uint16_t> {};
template <>
struct Codec<Vxlan::VniExt> : NumberCodec<Vxlan::VniExt, std::uint32_t> {};
template <>
struct Codec<Vxlan::VniExtOrNone> : NumberCodec<Vxlan::VniExtOrNone, std::uint32_t> {};
template <>
struct Codec<L2Rib::DestId> : NumberCodec<L2Rib::DestId, std::uint64_t> {};
template <>
struct Codec<Arp::ArpSource> : NumberCodec<Arp::ArpSource, std::uint8_t> {};

template <>
struct Codec<Brix::String> {
  static void encode(Writer& w, Brix::String const& v) { w.text(v.view()); }
  static Brix::String decode(Reader& r) { return Brix::String(r.text()); }
};
template <>
struct Codec<L3::VrfName> {
  static void encode(Writer& w, L3::VrfName const& v) { w.text(v.view()); }
  static L3::VrfName decode(Reader& r) { return L3::VrfName(r.text()); }
};
// An interface by its name: the number of an interface of no common kind is private to the
// process that numbered it.
template <>
struct Codec<Lanx::IntfId> {
  static void encode(Writer& w, Lanx::IntfId const& v) {
    w.text(v.isEmpty() ? std::string_view() : v.stringValue().view());
  }
  // A peer may name interfaces of no known kind, which this process keeps for good: only so many.
  static constexpr std::size_t internedLimit = 4096;
  static Lanx::IntfId decode(Reader& r) {
    std::string_view name = r.text();
    if (auto id = Lanx::IntfId::bounded(name, internedLimit)) return *id;
    throw DecodeError("an interface name of no known kind beyond the process's " + std::to_string(internedLimit));
  }
};

template <>
struct Codec<Lanx::EthAddr> {
  static void encode(Writer& w, Lanx::EthAddr const& v) {
    for (auto word : v.words())
      w.bytes(std::array{static_cast<std::uint8_t>(word >> 8), static_cast<std::uint8_t>(word)});
  }
  static Lanx::EthAddr decode(Reader& r) {
    auto b = r.bytes<6>();
    auto word = [&](std::size_t i) { return static_cast<std::uint16_t>(b[2 * i] << 8 | b[2 * i + 1]); };
    return Lanx::EthAddr(word(0), word(1), word(2));
  }
};
template <>
struct Codec<Lanx::IpAddr> {
  static void encode(Writer& w, Lanx::IpAddr v) { w.bytes(v.bytes()); }
  static Lanx::IpAddr decode(Reader& r) {
    auto b = r.bytes<4>();
    return Lanx::IpAddr(b[0], b[1], b[2], b[3]);
  }
};
template <>
struct Codec<Lanx::Ip6Addr> {
  static void encode(Writer& w, Lanx::Ip6Addr const& v) { w.bytes(v.bytes()); }
  static Lanx::Ip6Addr decode(Reader& r) { return Lanx::Ip6Addr(r.bytes<16>()); }
};
// The family, then the bytes of that family: 4, 16, or none for any other family (whose
// address is always the zero one).
template <>
struct Codec<Lanx::IpGenAddr> {
  static void encode(Writer& w, Lanx::IpGenAddr const& v);
  static Lanx::IpGenAddr decode(Reader& r);
};

// A tagged union: the id, the kind, then the data of that kind, which is a record of its own.
// Written by hand because the alternative held decides which fields follow.
template <>
struct Codec<L2Rib::Dest> {
  static void encode(Writer& w, L2Rib::Dest const& v);
  static L2Rib::Dest decode(Reader& r);
};

template <Record T>
struct Codec<T> {
  static void encode(Writer& w, T const& v) {
    std::apply([&](auto const&... f) { (Wire::encode(w, f), ...); }, v.vokFields());
  }
  static T decode(Reader& r) {
    T v{};
    std::apply([&](auto&... f) { ((f = Wire::decode<std::remove_cvref_t<decltype(f)>>(r)), ...); }, v.vokFields());
    return v;
  }
};

}  // namespace MlagVxlan::Wire
