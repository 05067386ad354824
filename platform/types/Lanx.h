// Network values: interfaces, MAC and IP addresses.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "runtime/String.h"
#include "types/ValueHash.h"

namespace Lanx {

// Raised by the parse functions for text that is not an address of the kind asked for.
class AddressParseException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

enum class AddressFamily : std::uint8_t {
  ipunknown = 0,
  ipv4 = 1,
  ipv6 = 2,
  // Older names of the same two families. Text forms use the first name of a value.
  inet = ipv4,
  inet6 = ipv6,
};

// "ipunknown", "ipv4", "ipv6"; "unknown" for a value without a name.
std::string_view stringValue(AddressFamily af) noexcept;
std::ostream& operator<<(std::ostream& os, AddressFamily af);
// The type description: every name of the enumeration with its value, by ascending value. A
// value with two names stands twice, its first name first.
std::span<std::pair<std::uint8_t, std::string_view> const> addressFamilyMembers() noexcept;

// An interface, named by its name string. The common kinds of name ("Ethernet1/2",
// "Port-Channel5", "Vlan10", "Vxlan1", ...) are encoded in the number itself, so that making one
// needs no lookup and they sort by kind and then by their numbers; any other name is kept in a
// process-wide table and numbered in the order it was first seen.
class IntfId {
 public:
  constexpr IntfId() noexcept = default;
  constexpr explicit IntfId(std::string_view name) : value_(encode(name)) {}
  constexpr explicit IntfId(char const* name) : IntfId(std::string_view(name ? name : "")) {}
  explicit IntfId(std::string const& name) : IntfId(std::string_view(name)) {}
  explicit IntfId(Brix::String const& name) : IntfId(name.view()) {}

  // The name, made once per thread and interface: the reference stays valid while the calling
  // thread lives.
  Brix::String const& stringValue() const;
  // The abbreviated name: "Et1/2", "Po5", "Vl10", "Vx1"; a name of no known kind, or one whose
  // kind is not followed by a digit, is its own short name. Made and kept like stringValue.
  Brix::String const& shortName() const;
  // The id of `name`, or none when the name is of no known kind and new, and the process already
  // numbers `limit` such names: names that come from outside cannot grow the table without end.
  static std::optional<IntfId> bounded(std::string_view name, std::size_t limit);

  constexpr bool isEmpty() const noexcept { return value_ == 0; }
  constexpr std::uint64_t value() const noexcept { return value_; }
  std::size_t hash() const noexcept { return std::hash<std::uint64_t>{}(value_); }

  friend constexpr bool operator==(IntfId, IntfId) noexcept = default;
  friend constexpr auto operator<=>(IntfId, IntfId) noexcept = default;

 private:
  friend struct IntfIdCodec;
  friend struct VlanIntfId;

  struct Kind {
    std::string_view name;
    std::string_view shortName;
  };
  static constexpr std::array<Kind, 7> kinds{{{"Ethernet", "Et"},
                                              {"Port-Channel", "Po"},
                                              {"Vlan", "Vl"},
                                              {"Vxlan", "Vx"},
                                              {"Loopback", "Lo"},
                                              {"Management", "Ma"},
                                              {"Tunnel", "Tu"}}};
  static constexpr std::uint64_t kindVlan = 3;
  static constexpr std::uint64_t kindVxlan = 4;
  static constexpr std::uint64_t kindInterned = 0xff;

  // Layout: kind in bits 56-63; then the first number in 20 bits, the second and third in 16
  // bits each, and the count of numbers (1 to 3) in the two lowest bits.
  static constexpr std::uint64_t kindOf(std::uint64_t v) noexcept { return v >> 56; }
  static constexpr std::uint32_t numberOf(std::uint64_t v, int i) noexcept {
    return i == 0 ? static_cast<std::uint32_t>((v >> 36) & 0xfffff)
                  : static_cast<std::uint32_t>((v >> (i == 1 ? 20 : 4)) & 0xffff);
  }
  static constexpr int countOf(std::uint64_t v) noexcept { return static_cast<int>(v & 3); }

  static constexpr std::uint64_t encode(std::string_view name) {
    if (name.empty()) return 0;
    for (std::size_t k = 0; k < kinds.size(); ++k) {
      if (!name.starts_with(kinds[k].name)) continue;
      std::uint64_t v = encodeNumbers(name.substr(kinds[k].name.size()));
      if (v != 0) return ((k + 1) << 56) | v;
      break;
    }
    return intern(name);
  }
  // "1", "1/2" or "1/2/3" in canonical decimal, each number within its field; 0 if not.
  static constexpr std::uint64_t encodeNumbers(std::string_view s) {
    constexpr std::uint32_t limit[3] = {0xfffff, 0xffff, 0xffff};
    constexpr int shift[3] = {36, 20, 4};
    std::uint64_t v = 0;
    int count = 0;
    while (true) {
      if (count == 3 || s.empty() || s[0] < '0' || s[0] > '9' || (s[0] == '0' && s.size() > 1 && s[1] != '/')) {
        return 0;
      }
      std::uint32_t n = 0;
      std::size_t i = 0;
      for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
        n = n * 10 + static_cast<std::uint32_t>(s[i] - '0');
        if (n > limit[count]) return 0;
      }
      v |= std::uint64_t{n} << shift[count];
      ++count;
      if (i == s.size()) break;
      if (s[i] != '/') return 0;
      s.remove_prefix(i + 1);
    }
    return v | static_cast<std::uint64_t>(count);
  }
  static std::uint64_t intern(std::string_view name);

  std::uint64_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, IntfId const& intf);

struct VlanIntfId {
  // The number of an interface named "Vlan" and a number, or 0 for any other interface. A
  // number beyond 32 bits gives the largest 32-bit value.
  static std::uint32_t vlanId(IntfId const& intf);
  // The interface "Vlan" and `vlanId`, made from the number with no name to parse: the inverse
  // of vlanId() for every 16-bit number.
  static constexpr IntfId intfId(std::uint16_t vlanId) noexcept {
    IntfId intf;
    intf.value_ = (IntfId::kindVlan << 56) | (std::uint64_t{vlanId} << 36) | 1;
    return intf;
  }
};

struct VxlanTunnelIntfId {
  // A VXLAN tunnel interface is one named "Vxlan" and a number.
  static bool isVxlanTunnelIntfId(IntfId const& intf);
};

// A MAC address as three 16-bit words, the first word holding the first two bytes.
class EthAddr {
 public:
  constexpr EthAddr() noexcept = default;
  constexpr EthAddr(std::uint16_t word0, std::uint16_t word1, std::uint16_t word2) noexcept
      : words_{word0, word1, word2} {}
  // "aa:bb:cc:dd:ee:ff" (one or two hex digits per byte) or "aabb.ccdd.eeff" (one to four hex
  // digits per word); a malformed text raises AddressParseException.
  static EthAddr parse(std::string_view text);
  static constexpr EthAddr broadcast() noexcept { return EthAddr(0xffff, 0xffff, 0xffff); }

  constexpr std::uint16_t word0() const noexcept { return words_[0]; }
  constexpr std::uint16_t word1() const noexcept { return words_[1]; }
  constexpr std::uint16_t word2() const noexcept { return words_[2]; }
  constexpr std::array<std::uint16_t, 3> const& words() const noexcept { return words_; }
  constexpr bool isZero() const noexcept { return words_[0] == 0 && words_[1] == 0 && words_[2] == 0; }
  constexpr bool isBroadcast() const noexcept { return *this == broadcast(); }

  // "aa:bb:cc:dd:ee:ff", lower case.
  Brix::String stringValue() const;
  std::size_t hash() const noexcept { return ValueHash::of(words_[0], words_[1], words_[2]); }

  friend constexpr bool operator==(EthAddr const&, EthAddr const&) noexcept = default;
  friend constexpr auto operator<=>(EthAddr const&, EthAddr const&) noexcept = default;

 private:
  std::array<std::uint16_t, 3> words_{};
};

std::ostream& operator<<(std::ostream& os, EthAddr const& addr);

// An IPv4 address. value() is the address as a number, 10.0.0.1 being 0x0a000001.
class IpAddr {
 public:
  constexpr IpAddr() noexcept = default;
  constexpr explicit IpAddr(std::uint32_t value) noexcept : value_(value) {}
  constexpr IpAddr(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) noexcept
      : value_(std::uint32_t{a} << 24 | std::uint32_t{b} << 16 | std::uint32_t{c} << 8 | d) {}
  // Dotted decimal, four numbers of 0 to 255 without leading zeros; a malformed text raises
  // AddressParseException.
  static IpAddr parse(std::string_view text);

  constexpr std::uint32_t value() const noexcept { return value_; }
  // The four bytes in the order they are written.
  constexpr std::array<std::uint8_t, 4> bytes() const noexcept {
    return {static_cast<std::uint8_t>(value_ >> 24), static_cast<std::uint8_t>(value_ >> 16),
            static_cast<std::uint8_t>(value_ >> 8), static_cast<std::uint8_t>(value_)};
  }
  constexpr bool isZero() const noexcept { return value_ == 0; }

  Brix::String stringValue() const;
  std::size_t hash() const noexcept { return std::hash<std::uint32_t>{}(value_); }

  friend constexpr bool operator==(IpAddr, IpAddr) noexcept = default;
  friend constexpr auto operator<=>(IpAddr, IpAddr) noexcept = default;

 private:
  std::uint32_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, IpAddr const& addr);

class Ip6Addr {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Ip6Addr() noexcept = default;
  constexpr explicit Ip6Addr(Bytes const& bytes) noexcept : bytes_(bytes) {}
  // The usual text forms: eight groups of one to four hex digits, "::" for one or more zero
  // groups, and a dotted IPv4 address in place of the last two groups. A malformed text raises
  // AddressParseException.
  static Ip6Addr parse(std::string_view text);

  constexpr Bytes const& bytes() const noexcept { return bytes_; }
  constexpr std::uint16_t group(std::size_t i) const noexcept {
    return static_cast<std::uint16_t>(bytes_[2 * i] << 8 | bytes_[2 * i + 1]);
  }
  constexpr bool isZero() const noexcept {
    for (auto b : bytes_) {
      if (b != 0) return false;
    }
    return true;
  }

  // The canonical short text: lower case, no leading zeros, the longest run of two or more zero
  // groups (the first of equals) as "::", and an IPv4-mapped address with its dotted tail.
  Brix::String stringValue() const;
  // All eight groups with four digits each, as in "2001:0db8:0000:0000:0000:0000:0000:0001".
  Brix::String stringValueExpanded() const;
  std::size_t hash() const noexcept { return ValueHash::combine(ValueHash::mix(word(0)), word(1)); }
  // The address as two 64-bit words in memory order, for hashing.
  constexpr std::uint64_t word(std::size_t i) const noexcept {
    std::uint64_t w = 0;
    for (std::size_t k = 0; k < 8; ++k) w |= std::uint64_t{bytes_[8 * i + k]} << (8 * k);
    return w;
  }

  friend constexpr bool operator==(Ip6Addr const&, Ip6Addr const&) noexcept = default;
  friend constexpr auto operator<=>(Ip6Addr const&, Ip6Addr const&) noexcept = default;

 private:
  Bytes bytes_{};
};

std::ostream& operator<<(std::ostream& os, Ip6Addr const& addr);

// An address of either family: 16 bytes, an IPv4 address in the first four, then the family.
// The default is all zero with the family ipunknown, like every other all-zero default record.
class IpGenAddr {
 public:
  constexpr IpGenAddr() noexcept = default;
  constexpr IpGenAddr(IpAddr addr) noexcept : af_(AddressFamily::ipv4) {  // NOLINT(google-explicit-constructor)
    auto b = addr.bytes();
    for (std::size_t i = 0; i < b.size(); ++i) bytes_[i] = b[i];
  }
  constexpr IpGenAddr(Ip6Addr const& addr) noexcept  // NOLINT(google-explicit-constructor)
      : bytes_(addr.bytes()), af_(AddressFamily::ipv6) {}
  // The zero address of the family.
  constexpr explicit IpGenAddr(AddressFamily af) noexcept : af_(af) {}
  // IPv6 text if it has a colon, else IPv4 text; a malformed text raises AddressParseException.
  static IpGenAddr parse(std::string_view text);

  constexpr AddressFamily af() const noexcept { return af_; }
  constexpr bool isV4() const noexcept { return af_ == AddressFamily::ipv4; }
  constexpr bool isV6() const noexcept { return af_ == AddressFamily::ipv6; }
  // The address of the asked family; the zero address when this one is of another family, so
  // that an address of one family is never found in a table of the other.
  constexpr IpAddr v4Addr() const noexcept {
    if (!isV4()) return IpAddr();
    return IpAddr(bytes_[0], bytes_[1], bytes_[2], bytes_[3]);
  }
  constexpr Ip6Addr v6Addr() const noexcept { return isV6() ? Ip6Addr(bytes_) : Ip6Addr(); }
  constexpr Ip6Addr::Bytes const& bytes() const noexcept { return bytes_; }
  constexpr bool isZero() const noexcept { return Ip6Addr(bytes_).isZero(); }

  // The text of the address of its family; "unknown" for a family other than IPv4 and IPv6.
  Brix::String stringValue() const;
  // The family goes into the last byte of the first word, which no IPv4 address uses.
  std::size_t hash() const noexcept {
    Ip6Addr const a(bytes_);
    return ValueHash::combine(ValueHash::mix(a.word(0) ^ std::uint64_t{static_cast<std::uint8_t>(af_)} << 56),
                              a.word(1));
  }

  friend constexpr bool operator==(IpGenAddr const&, IpGenAddr const&) noexcept = default;
  friend constexpr auto operator<=>(IpGenAddr const&, IpGenAddr const&) noexcept = default;

 private:
  Ip6Addr::Bytes bytes_{};
  AddressFamily af_ = AddressFamily::ipunknown;
};

std::ostream& operator<<(std::ostream& os, IpGenAddr const& addr);

}  // namespace Lanx

VALUE_TYPES_STD_HASH(Lanx::IntfId);
VALUE_TYPES_STD_HASH(Lanx::EthAddr);
VALUE_TYPES_STD_HASH(Lanx::IpAddr);
VALUE_TYPES_STD_HASH(Lanx::Ip6Addr);
VALUE_TYPES_STD_HASH(Lanx::IpGenAddr);
