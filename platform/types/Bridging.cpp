#include "types/Bridging.h"

#include <fmt/format.h>

#include "types/EnumText.h"

namespace Bridging {

std::ostream& operator<<(std::ostream& os, VlanId v) { return os << v.value(); }
std::ostream& operator<<(std::ostream& os, VlanIdOrNone v) { return os << v.value(); }
std::ostream& operator<<(std::ostream& os, ExtendedVlanId v) { return os << v.value(); }

std::ostream& operator<<(std::ostream& os, HostKey const& key) {
  return os << '(' << key.vlanId() << ", " << key.addr() << ')';
}

namespace {
std::string_view nameOf(EntryType t) noexcept {
  switch (t) {
    case EntryType::unknownEntry:
      return "unknownEntry";
    case EntryType::learnedDynamicMac:
      return "learnedDynamicMac";
    case EntryType::configuredStaticMac:
      return "configuredStaticMac";
    case EntryType::peerDynamicMac:
      return "peerDynamicMac";
    case EntryType::peerStaticMac:
      return "peerStaticMac";
    case EntryType::learnedRemoteMac:
      return "learnedRemoteMac";
    case EntryType::configuredRemoteMac:
      return "configuredRemoteMac";
    case EntryType::receivedRemoteMac:
      return "receivedRemoteMac";
    case EntryType::evpnDynamicRemoteMac:
      return "evpnDynamicRemoteMac";
    case EntryType::evpnConfiguredRemoteMac:
      return "evpnConfiguredRemoteMac";
    case EntryType::peerLearnedRemoteMac:
      return "peerLearnedRemoteMac";
    case EntryType::peerReceivedRemoteMac:
      return "peerReceivedRemoteMac";
    case EntryType::peerEvpnRemoteMac:
      return "peerEvpnRemoteMac";
    case EntryType::routerMac:
      return "routerMac";
  }
  return {};
}
}  // namespace

std::string_view stringValue(EntryType t) noexcept { return EnumText::orUnknown(nameOf(t)); }

std::ostream& operator<<(std::ostream& os, EntryType t) { return EnumText::put(os, t, nameOf(t)); }

namespace Flat {

std::ostream& operator<<(std::ostream& os, VlanConfigFlat const& v) {
  return os << fmt::format(
             "vlanId={}, state={}, name={}, priority={}, timestamp={}, flags={}, owner={}, configSource={}, "
             "reserved1={}, reserved2={}",
             v.vlanId().value(), v.state(), v.name().view(), v.priority(), v.timestamp(), v.flags(), v.owner(),
             v.configSource().view(), v.reserved1(), v.reserved2());
}

}  // namespace Flat

}  // namespace Bridging
