// MLAG values: the role, the keys of the BFD and ARP exchange, and the local host table record.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string_view>
#include <utility>

#include "runtime/String.h"
#include "runtime/Time.h"
#include "types/Arp.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/ValueHash.h"

namespace Mlag {

enum class MlagState : std::uint8_t {
  disabled = 0,
  inactive = 1,
  negotiating = 2,
  primary = 3,
  secondary = 4,
};
std::string_view stringValue(MlagState s) noexcept;
std::ostream& operator<<(std::ostream& os, MlagState s);

// A VTEP of one VTI: the key of the BFD state by VTI and VTEP.
class VtiVtep {
 public:
  constexpr VtiVtep() noexcept = default;
  constexpr VtiVtep(Lanx::IntfId intfId, Lanx::IpGenAddr const& vtep) noexcept : intfId_(intfId), vtep_(vtep) {}

  constexpr Lanx::IntfId intfId() const noexcept { return intfId_; }
  constexpr Lanx::IpGenAddr const& vtep() const noexcept { return vtep_; }

  VOK_FIELDS(intfId_, vtep_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(VtiVtep const& a, VtiVtep const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }
  friend constexpr auto operator<=>(VtiVtep const&, VtiVtep const&) noexcept = default;

 private:
  Lanx::IntfId intfId_;
  Lanx::IpGenAddr vtep_;
};

std::ostream& operator<<(std::ostream& os, VtiVtep const& v);

// The key of an ARP or neighbour entry published with its VLAN and source.
class VlanIpSource {
 public:
  constexpr VlanIpSource() noexcept = default;
  constexpr VlanIpSource(Bridging::VlanIdOrNone vlanId, Lanx::IpGenAddr const& ipAddr,
                         Arp::ArpSource arpSource) noexcept
      : vlanId_(vlanId), ipAddr_(ipAddr), arpSource_(arpSource) {}

  constexpr Bridging::VlanIdOrNone vlanId() const noexcept { return vlanId_; }
  constexpr Lanx::IpGenAddr const& ipAddr() const noexcept { return ipAddr_; }
  constexpr Arp::ArpSource arpSource() const noexcept { return arpSource_; }

  // "vlanId: 10, ipAddr: 10.0.0.1, arpSource: dynamic"
  Brix::String toStrep() const;
  VOK_FIELDS(vlanId_, ipAddr_, arpSource_)
  std::size_t hash() const noexcept {
    return ValueHash::combine(ipAddr_.hash(), std::size_t{vlanId_.value()} << 8 | arpSource_.value());
  }
  friend constexpr bool operator==(VlanIpSource const& a, VlanIpSource const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  Bridging::VlanIdOrNone vlanId_;
  Lanx::IpGenAddr ipAddr_;
  Arp::ArpSource arpSource_;
};

std::ostream& operator<<(std::ostream& os, VlanIpSource const& v);

class HostEntryKey {
 public:
  constexpr HostEntryKey() noexcept = default;
  constexpr HostEntryKey(std::uint16_t vlanId, Lanx::EthAddr const& macAddr) noexcept
      : vlanId_(vlanId), macAddr_(macAddr) {}

  constexpr std::uint16_t vlanId() const noexcept { return vlanId_; }
  constexpr Lanx::EthAddr const& macAddr() const noexcept { return macAddr_; }

  VOK_FIELDS(vlanId_, macAddr_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(HostEntryKey const& a, HostEntryKey const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  std::uint16_t vlanId_ = 0;
  Lanx::EthAddr macAddr_;
};

std::ostream& operator<<(std::ostream& os, HostEntryKey const& k);

// A row of the local MLAG host table.
class HostEntry {
 public:
  HostEntry() = default;
  HostEntry(Brix::String intf, Brix::Duration lastMoveTime, std::uint32_t moves, HostEntryKey const& key,
            std::uint8_t entryType, std::uint8_t hostEntryFlag = 0)
      : intf_(std::move(intf)),
        lastMoveTime_(lastMoveTime),
        moves_(moves),
        key_(key),
        entryType_(entryType),
        hostEntryFlag_(hostEntryFlag) {}

  Brix::String const& intf() const noexcept { return intf_; }
  Brix::Duration lastMoveTime() const noexcept { return lastMoveTime_; }
  std::uint32_t moves() const noexcept { return moves_; }
  HostEntryKey const& key() const noexcept { return key_; }
  std::uint8_t entryType() const noexcept { return entryType_; }
  std::uint8_t hostEntryFlag() const noexcept { return hostEntryFlag_; }
  void intfIs(Brix::String v) noexcept { intf_ = std::move(v); }
  void lastMoveTimeIs(Brix::Duration v) noexcept { lastMoveTime_ = v; }
  void movesIs(std::uint32_t v) noexcept { moves_ = v; }
  void keyIs(HostEntryKey const& v) noexcept { key_ = v; }
  void entryTypeIs(std::uint8_t v) noexcept { entryType_ = v; }
  void hostEntryFlagIs(std::uint8_t v) noexcept { hostEntryFlag_ = v; }

  bool isEq(HostEntry const& o) const noexcept { return *this == o; }
  VOK_FIELDS(intf_, lastMoveTime_, moves_, key_, entryType_, hostEntryFlag_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend bool operator==(HostEntry const& a, HostEntry const& b) noexcept { return a.vokFields() == b.vokFields(); }

 private:
  Brix::String intf_;
  Brix::Duration lastMoveTime_ = 0.0;
  std::uint32_t moves_ = 0;
  HostEntryKey key_;
  std::uint8_t entryType_ = 0;
  std::uint8_t hostEntryFlag_ = 0;
};

std::ostream& operator<<(std::ostream& os, HostEntry const& e);

}  // namespace Mlag

VALUE_TYPES_STD_HASH(Mlag::VtiVtep);
VALUE_TYPES_STD_HASH(Mlag::VlanIpSource);
VALUE_TYPES_STD_HASH(Mlag::HostEntryKey);
VALUE_TYPES_STD_HASH(Mlag::HostEntry);
