// VNI numbers, the VXLAN keys and records, and the VXLAN enumerations.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string_view>
#include <utility>

#include "runtime/Exceptions.h"
#include "runtime/String.h"
#include "types/Bridging.h"
#include "types/IntRange.h"
#include "types/Lanx.h"
#include "types/ValueHash.h"

namespace Vxlan {

class VniExtOrNone;

// A VNI: any 32-bit value but all ones, which is none. VNI 0 is a valid VNI.
class VniExt {
 public:
  static constexpr std::uint32_t min = 0;
  static constexpr std::uint32_t max = 0xfffffffe;

  constexpr VniExt() noexcept = default;
  template <std::integral T>
  constexpr explicit VniExt(T v) : value_(check(v)) {}
  constexpr explicit VniExt(VniExtOrNone v);

  constexpr std::uint32_t value() const noexcept { return value_; }
  std::size_t hash() const noexcept { return std::hash<std::uint32_t>{}(value_); }

  friend constexpr bool operator==(VniExt, VniExt) noexcept = default;
  friend constexpr auto operator<=>(VniExt, VniExt) noexcept = default;

 private:
  template <std::integral T>
  static constexpr std::uint32_t check(T v) {
    if (!IntRange::contains(v, min, max)) {
      Brix::RangeException::throwException(
          "Vxlan::VniExt::value < Vxlan::VniExt::min or > Vxlan::VniExt::max not allowed");
    }
    return static_cast<std::uint32_t>(v);
  }
  std::uint32_t value_ = 0;
};

// A VNI or none; none, all ones, is the default.
class VniExtOrNone {
 public:
  static constexpr std::uint32_t noneValue = 0xffffffff;

  constexpr VniExtOrNone() noexcept = default;
  constexpr explicit VniExtOrNone(std::uint32_t v) noexcept : value_(v) {}
  constexpr VniExtOrNone(VniExt v) noexcept : value_(v.value()) {}  // NOLINT(google-explicit-constructor)

  constexpr std::uint32_t value() const noexcept { return value_; }
  constexpr bool isNone() const noexcept { return value_ == noneValue; }
  std::size_t hash() const noexcept { return std::hash<std::uint32_t>{}(value_); }

  friend constexpr bool operator==(VniExtOrNone, VniExtOrNone) noexcept = default;
  friend constexpr auto operator<=>(VniExtOrNone, VniExtOrNone) noexcept = default;

 private:
  std::uint32_t value_ = noneValue;
};

constexpr VniExt::VniExt(VniExtOrNone v) : value_(check(v.value())) {}

std::ostream& operator<<(std::ostream& os, VniExt v);
// The number, or "none".
std::ostream& operator<<(std::ostream& os, VniExtOrNone v);

class MacVlanPair {
 public:
  constexpr MacVlanPair() noexcept = default;
  constexpr MacVlanPair(Lanx::EthAddr const& mac, Bridging::VlanId vlanId) noexcept : mac_(mac), vlanId_(vlanId) {}

  constexpr Lanx::EthAddr const& mac() const noexcept { return mac_; }
  constexpr Bridging::VlanId vlanId() const noexcept { return vlanId_; }
  void macIs(Lanx::EthAddr const& v) noexcept { mac_ = v; }
  void vlanIdIs(Bridging::VlanId v) noexcept { vlanId_ = v; }

  VOK_FIELDS(mac_, vlanId_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(MacVlanPair const& a, MacVlanPair const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }
  friend constexpr auto operator<=>(MacVlanPair const&, MacVlanPair const&) noexcept = default;

 private:
  Lanx::EthAddr mac_;
  Bridging::VlanId vlanId_;
};

std::ostream& operator<<(std::ostream& os, MacVlanPair const& v);

// The key of the active ARP tables. The VLAN is a plain 16-bit number; it is range-checked only
// where a Bridging::VlanIdOrNone is made of it.
class VlanIpPair {
 public:
  constexpr VlanIpPair() noexcept = default;
  constexpr VlanIpPair(std::uint16_t vlanId, Lanx::IpGenAddr const& ipAddr) noexcept
      : vlanId_(vlanId), ipAddr_(ipAddr) {}

  constexpr std::uint16_t vlanId() const noexcept { return vlanId_; }
  constexpr Lanx::IpGenAddr const& ipAddr() const noexcept { return ipAddr_; }
  void vlanIdIs(std::uint16_t v) noexcept { vlanId_ = v; }
  void ipAddrIs(Lanx::IpGenAddr const& v) noexcept { ipAddr_ = v; }

  VOK_FIELDS(vlanId_, ipAddr_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(VlanIpPair const& a, VlanIpPair const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  std::uint16_t vlanId_ = 0;
  Lanx::IpGenAddr ipAddr_;
};

std::ostream& operator<<(std::ostream& os, VlanIpPair const& v);

// A VNI of one VTI. Made from a VniExtOrNone, it raises for none. The handlers name the VNI
// first, so both orders of arguments are taken.
class VniVtiPair {
 public:
  constexpr VniVtiPair() noexcept = default;
  constexpr VniVtiPair(Lanx::IntfId intfId, VniExtOrNone vni) : intfId_(intfId), vni_(vni) {}
  constexpr VniVtiPair(VniExtOrNone vni, Lanx::IntfId intfId) : intfId_(intfId), vni_(vni) {}

  constexpr Lanx::IntfId intfId() const noexcept { return intfId_; }
  constexpr VniExt vni() const noexcept { return vni_; }

  VOK_FIELDS(intfId_, vni_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(VniVtiPair const& a, VniVtiPair const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  Lanx::IntfId intfId_;
  VniExt vni_;
};

std::ostream& operator<<(std::ostream& os, VniVtiPair const& v);

// A VLAN's VNI and who configured the mapping. The default (empty interface, empty source, VNI
// none, flags 0) stands for no mapping.
class VniSourcePair {
 public:
  VniSourcePair() = default;
  VniSourcePair(Lanx::IntfId intfId, Brix::String source, VniExtOrNone vni, std::uint8_t flags = 0)
      : intfId_(intfId), source_(std::move(source)), vni_(vni), flags_(flags) {}

  Lanx::IntfId intfId() const noexcept { return intfId_; }
  Brix::String const& source() const noexcept { return source_; }
  VniExtOrNone vni() const noexcept { return vni_; }
  std::uint8_t flags() const noexcept { return flags_; }
  void intfIdIs(Lanx::IntfId v) noexcept { intfId_ = v; }
  void sourceIs(Brix::String v) noexcept { source_ = std::move(v); }
  void vniIs(VniExtOrNone v) noexcept { vni_ = v; }
  void flagsIs(std::uint8_t v) noexcept { flags_ = v; }

  bool isEq(VniSourcePair const& o) const noexcept { return *this == o; }
  std::size_t hash() const noexcept { return ValueHash::of(intfId_, source_, vni_, flags_); }
  friend bool operator==(VniSourcePair const&, VniSourcePair const&) noexcept = default;

 private:
  Lanx::IntfId intfId_;
  Brix::String source_;
  VniExtOrNone vni_;
  std::uint8_t flags_ = 0;
};

std::ostream& operator<<(std::ostream& os, VniSourcePair const& v);

enum class VtepType : std::uint8_t {
  unknownVtep = 0,
  localVtep = 1,      // the VTI's own address
  alternateVtep = 2,  // its second address
  mlagVtep = 3,       // the address of this peer alone
};
std::string_view stringValue(VtepType t) noexcept;
std::ostream& operator<<(std::ostream& os, VtepType t);

// Who configured a VLAN-to-VNI mapping.
enum class VniSource : std::uint8_t {
  unknownSource = 0,
  staticSource = 1,
  controllerSource = 8,
  evpnSource = 16,
  mlagSource = 32,
};
// "static", "controller", "evpn", "mlag"; "unknown" for a value without a name.
std::string_view stringValue(VniSource s) noexcept;
std::ostream& operator<<(std::ostream& os, VniSource s);

enum class BumVtepIpListType : std::uint8_t {
  all = 0,  // flood to every VTEP of the list
  any = 1,  // send to one VTEP of the list
};
std::string_view stringValue(BumVtepIpListType t) noexcept;
// Value and name of each member, for the ring trace's type description.
std::span<std::pair<std::uint8_t, std::string_view> const> bumVtepIpListTypeMembers() noexcept;
std::ostream& operator<<(std::ostream& os, BumVtepIpListType t);

enum class BumReplicationMode : std::uint8_t {
  none = 0,
  multicast = 1,
  hybrid = 2,
  headend = 3,
};
std::string_view stringValue(BumReplicationMode m) noexcept;
std::ostream& operator<<(std::ostream& os, BumReplicationMode m);

}  // namespace Vxlan

// The default VTI, the interface named "Vxlan1". Constant-initialised, so it holds its value
// before any code of any library runs.
extern Lanx::IntfId const Vxlan1;

VALUE_TYPES_STD_HASH(Vxlan::VniExt);
VALUE_TYPES_STD_HASH(Vxlan::VniExtOrNone);
VALUE_TYPES_STD_HASH(Vxlan::MacVlanPair);
VALUE_TYPES_STD_HASH(Vxlan::VlanIpPair);
VALUE_TYPES_STD_HASH(Vxlan::VniVtiPair);
VALUE_TYPES_STD_HASH(Vxlan::VniSourcePair);
