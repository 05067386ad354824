#include "entities/PlatformFunctions.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

Brix::Ptr<VxlanController::VniFdbStatusV2 const> fdbStatusFromDir(Brix::Ptr<Vok::Dir const> const& dir,
                                                                  Vxlan::VniExt vni) {
  if (!dir) return nullptr;
  return dir->entityAs<VxlanController::VniFdbStatusV2>(std::to_string(vni.value()));
}

namespace {

bool unicastV4(Lanx::IpAddr a) {
  auto b = a.bytes();
  if (a == Lanx::IpAddr()) return false;
  if (b[0] >= 224) return false;  // multicast, reserved and the broadcast address
  return b[0] != 127;             // loopback
}

bool unicastV6(Lanx::Ip6Addr const& a, bool linkLocalToo) {
  auto b = a.bytes();
  if (a.isZero() || b[0] == 0xff) return false;  // unspecified, multicast
  bool loopback = true;
  for (std::size_t i = 0; i + 1 < b.size(); ++i) loopback = loopback && b[i] == 0;
  if (loopback && b[15] == 1) return false;
  bool linkLocal = b[0] == 0xfe && (b[1] & 0xc0) == 0x80;
  return !linkLocal || linkLocalToo;
}

bool hasValidSvi(Vxlan::ActiveArpIpTable const& table, Lanx::IpGenAddr const& addr,
                 Bridging::VlanIdOrNone const& vlan) {
  if (vlan.value() == 0) return true;
  return addr.isV6() ? table.validSvi6(vlan) : table.validSvi(vlan);
}

}  // namespace

bool selectiveInstallAddr(Brix::Ptr<Vxlan::ActiveArpIpTable const> const& table, Lanx::IpGenAddr const& addr, bool flag,
                          Bridging::VlanIdOrNone const& vlan) {
  if (!table || (!addr.isV4() && !addr.isV6()) || addr.isZero()) return false;
  if (!hasValidSvi(*table, addr, vlan)) return false;
  if (!table->arpSelectiveInstall() && !table->arpSelectiveInstall2()) return true;
  return addr.isV4() ? unicastV4(addr.v4Addr()) : unicastV6(addr.v6Addr(), flag);
}

bool l2LearningInstallAddr(Brix::Ptr<Routing::L2Vpn::Config const> const& config,
                           Brix::Ptr<Vxlan::ActiveArpIpTable const> const& table, Lanx::IpGenAddr const& addr,
                           Bridging::VlanIdOrNone const& vlan) {
  if (!config || !table) return false;
  if (!config->l2LearningSwitch1() && !config->l2LearningSwitch2()) return false;
  if ((!addr.isV4() && !addr.isV6()) || addr.isZero()) return false;
  return hasValidSvi(*table, addr, vlan);
}

namespace Bridging {

bool isEntryTypeSelf(EntryType t) noexcept {
  switch (t) {
    case EntryType::learnedDynamicMac:
    case EntryType::configuredStaticMac:
    case EntryType::learnedRemoteMac:
    case EntryType::configuredRemoteMac:
    case EntryType::receivedRemoteMac:
    case EntryType::evpnDynamicRemoteMac:
    case EntryType::evpnConfiguredRemoteMac:
    case EntryType::routerMac:
      return true;
    default:
      return false;
  }
}

bool isEntryTypeRemote(EntryType t) noexcept {
  switch (t) {
    case EntryType::learnedRemoteMac:
    case EntryType::configuredRemoteMac:
    case EntryType::receivedRemoteMac:
    case EntryType::evpnDynamicRemoteMac:
    case EntryType::evpnConfiguredRemoteMac:
    case EntryType::peerLearnedRemoteMac:
    case EntryType::peerReceivedRemoteMac:
    case EntryType::peerEvpnRemoteMac:
      return true;
    default:
      return false;
  }
}

bool isEntryTypeController(EntryType t) noexcept {
  return t == EntryType::receivedRemoteMac || t == EntryType::peerReceivedRemoteMac || isEntryTypeEvpn(t);
}

bool isEntryTypeEvpn(EntryType t) noexcept {
  return t == EntryType::evpnDynamicRemoteMac || t == EntryType::evpnConfiguredRemoteMac ||
         t == EntryType::peerEvpnRemoteMac;
}

}  // namespace Bridging

namespace Mlag {

namespace {
Brix::Duration offsetOf(Brix::Duration offset, bool flag) { return flag ? 0.0 : offset; }
}  // namespace

Brix::Duration calcLastMoveTimeToPeer(Shoal::Bridging::ShoalFdbStatus const& fdbEntry,
                                      Brix::Duration const& peerMonotonicOffset, bool peerMonotonicOffsetFlag,
                                      bool* updateMlag) {
  Brix::Duration t = fdbEntry.lastMoveTime() + offsetOf(peerMonotonicOffset, peerMonotonicOffsetFlag);
  if (updateMlag && fdbEntry.moves() > 0) *updateMlag = true;
  return t < 0.0 ? 0.0 : t;
}

Brix::Duration calcLastMoveTimeFromPeer(MlagP2p::HostEntry const& p2pEntry,
                                        Shoal::Bridging::ShoalFdbStatus const& fdbEntry,
                                        MlagP2p::HostEntry const& sentEntry, bool peerMonotonicOffsetFlag,
                                        Brix::Duration const& peerMonotonicOffset) {
  Brix::Duration offset = offsetOf(peerMonotonicOffset, peerMonotonicOffsetFlag);
  // Each side sends on the receiver's clock: the peer's entry is on ours already, what we sent
  // is on the peer's and comes back by the offset.
  Brix::Duration t = std::max({p2pEntry.lastMoveTime(), sentEntry.lastMoveTime() - offset, fdbEntry.lastMoveTime()});
  return t < 0.0 ? 0.0 : t;
}

std::uint8_t toP2pHostEntryType(Bridging::EntryType t, unsigned peerP2pVersion) noexcept {
  using E = Bridging::EntryType;
  if (peerP2pVersion >= 2) return static_cast<std::uint8_t>(t);
  if (t == E::routerMac) return static_cast<std::uint8_t>(E::configuredStaticMac);
  if (static_cast<std::uint8_t>(t) > static_cast<std::uint8_t>(E::receivedRemoteMac)) {
    return static_cast<std::uint8_t>(E::learnedRemoteMac);
  }
  return static_cast<std::uint8_t>(t);
}

}  // namespace Mlag

bool toggleStateFromJson(std::string_view json, char const* name, bool defaultValue, bool* malformed) {
  nlohmann::json doc = nlohmann::json::parse(json, nullptr, false);
  bool const bad = doc.is_discarded() || !doc.is_object();
  if (malformed) *malformed = bad;
  if (bad) return defaultValue;
  auto it = doc.find(name);
  if (it == doc.end() || !it->is_boolean()) return defaultValue;
  return it->get<bool>();
}

bool getToggleState(char const* name, char const* file, bool defaultValue) {
  char const* dir = std::getenv("MLAGVXLAN_TOGGLE_DIR");
  std::string path = std::string(dir && *dir ? dir : "/etc/mlagvxlan") + "/" + file;
  std::ifstream in(path);
  if (!in) {
    std::fprintf(stderr, "mlagvxlan: no toggle file %s; %s stays %s\n", path.c_str(), name,
                 defaultValue ? "on" : "off");
    return defaultValue;
  }
  std::string const text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  bool malformed = false;
  bool const state = toggleStateFromJson(text, name, defaultValue, &malformed);
  if (malformed) {
    std::fprintf(stderr, "mlagvxlan: toggle file %s is not a JSON object; %s stays %s\n", path.c_str(), name,
                 defaultValue ? "on" : "off");
  }
  return state;
}
