// VLAN numbers, the FDB key and entry types, and the flat VLAN configuration record.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "runtime/Exceptions.h"
#include "types/IntRange.h"
#include "types/Lanx.h"
#include "types/Swix.h"
#include "types/ValueHash.h"

namespace Bridging {

class VlanIdOrNone;
class ExtendedVlanId;

// A VLAN number, 1 to 4094.
class VlanId {
 public:
  static constexpr std::uint16_t min = 1;
  static constexpr std::uint16_t max = 4094;

  constexpr VlanId() noexcept = default;
  template <std::integral T>
  constexpr explicit VlanId(T v) : value_(check(v)) {}
  constexpr explicit VlanId(VlanIdOrNone v);
  constexpr explicit VlanId(ExtendedVlanId v);

  constexpr std::uint16_t value() const noexcept { return value_; }
  std::size_t hash() const noexcept { return std::hash<std::uint16_t>{}(value_); }

  friend constexpr bool operator==(VlanId, VlanId) noexcept = default;
  friend constexpr auto operator<=>(VlanId, VlanId) noexcept = default;

 private:
  template <std::integral T>
  static constexpr std::uint16_t check(T v) {
    if (!IntRange::contains(v, min, max)) {
      Brix::RangeException::throwException("Bridging::VlanId::value < 1 or > 4094 not allowed");
    }
    return static_cast<std::uint16_t>(v);
  }
  std::uint16_t value_ = 1;
};

// A VLAN number or none, 0 to 4094; 0 is none.
class VlanIdOrNone {
 public:
  static constexpr std::uint16_t max = 4094;

  constexpr VlanIdOrNone() noexcept = default;
  template <std::integral T>
  constexpr explicit VlanIdOrNone(T v) : value_(check(v)) {}
  constexpr VlanIdOrNone(VlanId v) noexcept : value_(v.value()) {}  // NOLINT(google-explicit-constructor)
  constexpr explicit VlanIdOrNone(ExtendedVlanId v);

  constexpr std::uint16_t value() const noexcept { return value_; }
  constexpr bool isNone() const noexcept { return value_ == 0; }
  std::size_t hash() const noexcept { return std::hash<std::uint16_t>{}(value_); }

  friend constexpr bool operator==(VlanIdOrNone, VlanIdOrNone) noexcept = default;
  friend constexpr auto operator<=>(VlanIdOrNone, VlanIdOrNone) noexcept = default;

 private:
  template <std::integral T>
  static constexpr std::uint16_t check(T v) {
    if (!IntRange::contains(v, 0, max))
      Brix::RangeException::throwException("Bridging::VlanIdOrNone::value > 4094 not allowed");
    return static_cast<std::uint16_t>(v);
  }
  std::uint16_t value_ = 0;
};

// Any 16-bit VLAN number, also the internal ones above 4094; 0 means no VLAN.
class ExtendedVlanId {
 public:
  constexpr ExtendedVlanId() noexcept = default;
  constexpr explicit ExtendedVlanId(std::uint16_t v) noexcept : value_(v) {}
  constexpr ExtendedVlanId(VlanId v) noexcept : value_(v.value()) {}        // NOLINT(google-explicit-constructor)
  constexpr ExtendedVlanId(VlanIdOrNone v) noexcept : value_(v.value()) {}  // NOLINT(google-explicit-constructor)

  constexpr std::uint16_t value() const noexcept { return value_; }
  constexpr bool isNone() const noexcept { return value_ == 0; }
  // Goes through the range check: a value above 4094 raises.
  constexpr VlanIdOrNone vlanIdOrNone() const { return VlanIdOrNone(value_); }
  std::size_t hash() const noexcept { return std::hash<std::uint16_t>{}(value_); }

  friend constexpr bool operator==(ExtendedVlanId, ExtendedVlanId) noexcept = default;
  friend constexpr auto operator<=>(ExtendedVlanId, ExtendedVlanId) noexcept = default;

 private:
  std::uint16_t value_ = 0;
};

constexpr VlanId::VlanId(VlanIdOrNone v) : value_(check(v.value())) {}
constexpr VlanId::VlanId(ExtendedVlanId v) : value_(check(v.value())) {}
constexpr VlanIdOrNone::VlanIdOrNone(ExtendedVlanId v) : value_(check(v.value())) {}

std::ostream& operator<<(std::ostream& os, VlanId v);
std::ostream& operator<<(std::ostream& os, VlanIdOrNone v);
std::ostream& operator<<(std::ostream& os, ExtendedVlanId v);

// The key of the FDB tables.
class HostKey {
 public:
  constexpr HostKey() noexcept = default;
  constexpr HostKey(VlanId vlanId, Lanx::EthAddr const& addr) noexcept : vlanId_(vlanId), addr_(addr) {}

  constexpr VlanId vlanId() const noexcept { return vlanId_; }
  constexpr Lanx::EthAddr const& addr() const noexcept { return addr_; }
  void vlanIdIs(VlanId v) noexcept { vlanId_ = v; }
  void addrIs(Lanx::EthAddr const& v) noexcept { addr_ = v; }

  std::size_t hash() const noexcept { return ValueHash::of(vlanId_, addr_); }
  friend constexpr bool operator==(HostKey const&, HostKey const&) noexcept = default;

 private:
  VlanId vlanId_;
  Lanx::EthAddr addr_;
};

std::ostream& operator<<(std::ostream& os, HostKey const& key);

// How an FDB entry came to be. "Remote" entries stand behind a VXLAN tunnel; the "peer" ones are
// the MLAG peer's, mirrored here.
enum class EntryType : std::uint8_t {
  unknownEntry = 0,
  learnedDynamicMac = 1,        // learned on a local port
  configuredStaticMac = 2,      // configured on a local port
  peerDynamicMac = 3,           // learned by the peer on a port of its own
  peerStaticMac = 4,            // configured on the peer
  learnedRemoteMac = 5,         // learned by this switch behind a tunnel
  configuredRemoteMac = 6,      // configured behind a tunnel
  receivedRemoteMac = 7,        // told by the VXLAN controller
  evpnDynamicRemoteMac = 8,     // learned through EVPN
  evpnConfiguredRemoteMac = 9,  // configured through EVPN
  peerLearnedRemoteMac = 10,    // learned by the peer behind a tunnel
  peerReceivedRemoteMac = 11,   // told to the peer by the controller
  peerEvpnRemoteMac = 12,       // learned by the peer through EVPN
  routerMac = 13,               // the switch's own router MAC
};

// The member's name; "unknown" for a value without one.
std::string_view stringValue(EntryType t) noexcept;
std::ostream& operator<<(std::ostream& os, EntryType t);

namespace Flat {

// One row of the flat VLAN configuration. Only vlanId and configSource are read by this
// library; the other fields are carried for the writers of the table and take part in equality.
class VlanConfigFlat {
 public:
  VlanConfigFlat() = default;
  VlanConfigFlat(VlanId vlanId, Swix::FString const& configSource) : vlanId_(vlanId), configSource_(configSource) {}

  VlanId vlanId() const noexcept { return vlanId_; }
  VlanId key() const noexcept { return vlanId_; }
  std::uint16_t state() const noexcept { return state_; }
  Swix::FString const& name() const noexcept { return name_; }
  std::uint16_t priority() const noexcept { return priority_; }
  std::uint64_t timestamp() const noexcept { return timestamp_; }
  std::uint16_t flags() const noexcept { return flags_; }
  std::uint32_t owner() const noexcept { return owner_; }
  Swix::FString const& configSource() const noexcept { return configSource_; }
  std::uint16_t reserved1() const noexcept { return reserved1_; }
  std::uint16_t reserved2() const noexcept { return reserved2_; }

  void vlanIdIs(VlanId v) noexcept { vlanId_ = v; }
  void stateIs(std::uint16_t v) noexcept { state_ = v; }
  void nameIs(Swix::FString const& v) noexcept { name_ = v; }
  void priorityIs(std::uint16_t v) noexcept { priority_ = v; }
  void timestampIs(std::uint64_t v) noexcept { timestamp_ = v; }
  void flagsIs(std::uint16_t v) noexcept { flags_ = v; }
  void ownerIs(std::uint32_t v) noexcept { owner_ = v; }
  void configSourceIs(Swix::FString const& v) noexcept { configSource_ = v; }
  void reserved1Is(std::uint16_t v) noexcept { reserved1_ = v; }
  void reserved2Is(std::uint16_t v) noexcept { reserved2_ = v; }

  bool isEq(VlanConfigFlat const& o) const noexcept { return *this == o; }
  std::size_t hash() const noexcept {
    return ValueHash::of(vlanId_, state_, name_, priority_, timestamp_, flags_, owner_, configSource_, reserved1_,
                         reserved2_);
  }
  friend bool operator==(VlanConfigFlat const&, VlanConfigFlat const&) noexcept = default;

 private:
  VlanId vlanId_;
  std::uint16_t state_ = 0;
  Swix::FString name_;
  std::uint16_t priority_ = 256;
  std::uint64_t timestamp_ = 0;
  std::uint16_t flags_ = 0;
  std::uint32_t owner_ = 0;
  Swix::FString configSource_{std::string_view("default")};
  std::uint16_t reserved1_ = 0;
  std::uint16_t reserved2_ = 0;
};

std::ostream& operator<<(std::ostream& os, VlanConfigFlat const& v);

}  // namespace Flat

}  // namespace Bridging

VALUE_TYPES_STD_HASH(Bridging::VlanId);
VALUE_TYPES_STD_HASH(Bridging::VlanIdOrNone);
VALUE_TYPES_STD_HASH(Bridging::ExtendedVlanId);
VALUE_TYPES_STD_HASH(Bridging::HostKey);
VALUE_TYPES_STD_HASH(Bridging::Flat::VlanConfigFlat);
