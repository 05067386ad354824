#include "Vxlan/ActiveArpP2pSm.h"

#include <cassert>

#include "Vxlan/Trace.h"
#include "entities/PlatformFunctions.h"

namespace MlagVxlan {

using NestedSm_VtiStatus = ActiveArpP2pSm::NestedSm_VtiStatus;

namespace {
constexpr Lanx::EthAddr zeroMac;
constexpr Bridging::VlanIdOrNone noVlan;
}  // namespace

ActiveArpP2pSm::ActiveArpP2pSm(MLAGVXLAN_ACTIVE_ARP_ARGS)
    : vtiStatusDir_(this, std::move(vtiStatusDir), &vtiStatusDirDispatch),
      l2VpnConfig_(std::move(l2VpnConfig)),
      activeArpConfig_(std::move(activeArpConfig)),
      activeArpIn_(std::move(activeArpIn)),
      activeArpOut_(std::move(activeArpOut)),
      destState_(std::move(destState)),
      rxDestState_(std::move(rxDestState)),
      destVxStatus_(std::move(destVxStatus)),
      name_(std::move(name)) {
  if (vtiStatusDir_) {
    for (auto it = vtiStatusDir_->vtiStatusIter(); !it.done(); it.advance()) {
      vtiStatusIs(it.currNodeMaybeStale().value);
    }
  }
}

void ActiveArpP2pSm::ActiveArpP2pSmIs(Ptr& out, MLAGVXLAN_ACTIVE_ARP_ARGS) {
  Vok::smIs(out, MLAGVXLAN_ACTIVE_ARP_PASS);
}

ActiveArpP2pSm::Ptr activeArpP2pSmFactory(MLAGVXLAN_ACTIVE_ARP_ARGS) {
  ActiveArpP2pSm::Ptr out;
  ActiveArpP2pSm::ActiveArpP2pSmIs(out, MLAGVXLAN_ACTIVE_ARP_PASS);
  return out;
}

// Every VTI gets its own nested state machine; a status object put in place of another under
// the same interface rebinds that interface's one.
void ActiveArpP2pSm::vtiStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                          void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<ActiveArpP2pSm>();
  if (field != Vxlan::VtiStatusDir::vtiStatusField || self->zombie() || !self->vtiStatusDir_) return;
  auto const& intfId = *static_cast<Lanx::IntfId const*>(key);
  self->vtiStatus_.follow(intfId, self->vtiStatusDir_->vtiStatus(intfId));
}

// ---- the reactors ----

void NestedSm_VtiStatus::VokL2VpnConfig::react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const*) {
  if (field == Routing::L2Vpn::Config::l2LearningSwitch1Field ||
      field == Routing::L2Vpn::Config::l2LearningSwitch2Field) {
    sm.handleInitialized();
  }
}

void NestedSm_VtiStatus::VokActiveArpConfig::react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const* key) {
  using T = Vxlan::ActiveArpIpTable;
  switch (field) {
    case T::arpSelectiveInstallField:
    case T::arpSelectiveInstall2Field:
      sm.handleInitialized();
      return;
    case T::validSviField:
      sm.handleValidSviList(*static_cast<Bridging::VlanIdOrNone const*>(key), Lanx::AddressFamily::ipv4);
      return;
    case T::validSvi6Field:
      sm.handleValidSviList(*static_cast<Bridging::VlanIdOrNone const*>(key), Lanx::AddressFamily::ipv6);
      return;
    default:
      return;
  }
}

void NestedSm_VtiStatus::VokActiveArpIn::react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const* key) {
  using T = Vxlan::ActiveArpIpTable;
  switch (field) {
    case T::remoteIpField:
      sm.handleRemoteArp(*static_cast<Vxlan::VlanIpPair const*>(key));
      return;
    case T::localIpField:
      sm.handleLocalArp(*static_cast<Vxlan::VlanIpPair const*>(key));
      return;
    case T::localIpMacField:
      sm.handleLocalIpMac(*static_cast<Vxlan::VlanIpPair const*>(key));
      return;
    case T::arpSelectiveInstallField:
      sm.handleArpSelectiveInstall();
      return;
    case T::l2LearningCapableField:
      // The local handlers depend on capability: a full re-evaluation.
      sm.handleInitialized();
      return;
    default:
      return;
  }
}

void NestedSm_VtiStatus::VokDestState::react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const*) {
  if (field == Vxlan::ActiveArpIpTable::l2LearningCapableField) sm.handleInitialized();
}

// ---- one VTI: enable logic ----

NestedSm_VtiStatus::NestedSm_VtiStatus(Brix::Ptr<Vxlan::VtiStatus const> const& vtiStatus, ActiveArpP2pSm* owner)
    : Reactor(vtiStatus, owner), intf_(vtiStatus ? vtiStatus->intfId().shortName() : Brix::String()) {
  if (vtiStatus) handleInitialized();
}

void NestedSm_VtiStatus::handleInitialized() {
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleInitialized()", intf_);
  ActiveArpP2pSm const& parent = *owner();
  activeArpInIs(parent.activeArpIn());
  if (!activeArpOut_) activeArpOut_ = parent.activeArpOut();
  activeArpConfigIs(parent.activeArpConfig());
  destStateIs(parent.destState());
  l2VpnConfigIs(parent.l2VpnConfig());
  if (!rxDestState_) rxDestState_ = parent.rxDestState();
  if (!destVxStatus_) destVxStatus_ = parent.destVxStatus();

  assert(config() && vpnConfig() && "the enable test reads activeArpConfig and l2VpnConfig");
  auto const& vpn = *vpnConfig();
  if (!config()->arpSelectiveInstall() && !vpn.l2LearningSwitch1() && !vpn.l2LearningSwitch2()) {
    doCleanup();
    return;
  }
  initialized_ = true;
  handleArpSelectiveInstall();
  handleArpL2LearningCapable();
  handleRemoteArp();
  handleLocalArp();
  handleLocalIpMac();
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleInitialized() return", intf_);
}

void NestedSm_VtiStatus::handleArpSelectiveInstall() {
  VXLAN_TRACE(8,
              "void MlagVxlan::ActiveArpP2pSm::NestedSm_VtiStatus::handleArpSelectiveInstall() inited: {initialized}",
              initialized_);
  if (!initialized_) return;
  bool const value = in()->arpSelectiveInstall();
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleArpSelectiveInstall({value})", intf_, value);
  activeArpOut_->arpSelectiveInstallIs(value);
}

void NestedSm_VtiStatus::handleArpL2LearningCapable() {
  if (!initialized_) return;
  bool const value = in()->l2LearningCapable();
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleArpL2LearningCapable({value})", intf_, value);
  activeArpOut_->l2LearningCapableIs(value);
}

// The capability the far end reported stays: it is the far end's, not ours to withdraw.
void NestedSm_VtiStatus::doCleanup() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::doCleanup()", intf_);
  activeArpOut_->remoteIpDelAll();
  activeArpOut_->localIpDelAll();
  activeArpOut_->localIpMacDelAll();
  activeArpOut_->arpSelectiveInstallIs(false);
  initialized_ = false;
}

// ---- filters ----

bool NestedSm_VtiStatus::selected(Vxlan::VlanIpPair const& key) const {
  return selectiveInstallAddr(config(), key.ipAddr(), false, noVlan);
}

bool NestedSm_VtiStatus::l2Installed(Vxlan::VlanIpPair const& key) const {
  return l2LearningInstallAddr(vpnConfig(), config(), key.ipAddr(), Bridging::VlanIdOrNone(key.vlanId()));
}

bool NestedSm_VtiStatus::l2InstalledAnyVlan(Vxlan::VlanIpPair const& key) const {
  return l2LearningInstallAddr(vpnConfig(), config(), key.ipAddr(), noVlan);
}

bool NestedSm_VtiStatus::inUse(Vxlan::VlanIpPair const& key) const {
  if (!l2Installed(key)) return false;
  Lanx::EthAddr const* const mac = activeArpOut_->localIpMacFind(key);
  return mac && *mac != zeroMac;
}

// ---- remote and local ARP ----

void NestedSm_VtiStatus::handleRemoteArp(Vxlan::VlanIpPair const& key) {
  if (!initialized_) return;
  if (in()->remoteIp(key) && selected(key)) {
    if (rxDestState_ && rxDestState_->remoteIpHas(key)) {
      VXLAN_TRACE(6, " Not adding new key to remoteIp {key} as entry already in rx dest state", key);
      return;
    }
    VXLAN_TRACE(6, " ActiveArpP2pSm::VokVtiStatus({intf})::handleRemoteArp Add remote IP {key}", intf_, key);
    activeArpOut_->remoteIpIs(key, true);
    return;
  }
  VXLAN_TRACE(6, " ActiveArpP2pSm::VokVtiStatus({intf})::handleRemoteArp Del remote IP {key}", intf_, key);
  activeArpOut_->remoteIpDel(key);
}

void NestedSm_VtiStatus::handleRemoteArp() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleRemoteArp()", intf_);
  for (auto it = activeArpOut_->remoteIpIter(); !it.done(); it.advance()) {
    Vxlan::VlanIpPair const key = it.currNodeMaybeStale().key;
    if (in()->remoteIpHas(key) && selected(key)) continue;
    VXLAN_TRACE(6, " Del remote IP {key}", key);
    activeArpOut_->remoteIpDel(key);
  }
  for (auto it = in()->remoteIpIter(); !it.done(); it.advance()) {
    handleRemoteArp(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleRemoteArp() return", intf_);
}

namespace {
struct InLocalArp {
  static constexpr char const* fn = "handleLocalArp";
};
struct InLocalIpMac {
  static constexpr char const* fn = "handleLocalIpMac";
};
}  // namespace

template <class Handler>
void NestedSm_VtiStatus::deleteLocalIpMac(Vxlan::VlanIpPair const& key) {
  VXLAN_TRACE_FN(Handler::fn, 6, " Deleting from localIpMac, key {key}", key);
  activeArpOut_->localIpMacDel(key);
}

template <class Handler>
void NestedSm_VtiStatus::deleteLocalIp(Vxlan::VlanIpPair const& key) {
  VXLAN_TRACE_FN(Handler::fn, 6, " Deleting from localIp, key {key}", key);
  activeArpOut_->localIpDel(key);
}

template <class Handler>
void NestedSm_VtiStatus::dropLocalIpMac(Vxlan::VlanIpPair const& key) {
  if (inUse(key)) {
    VXLAN_TRACE_FN(Handler::fn, 6, " Not changing entry in use in localIpMac, key {key}", key);
    return;
  }
  deleteLocalIpMac<Handler>(key);
}

void NestedSm_VtiStatus::handleLocalArp(Vxlan::VlanIpPair const& key) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalArp({key})", intf_, key);
  bool const wanted = in()->localIp(key) && selected(key);
  if (destIsL2Capable()) {
    // In use wins over wanted: a real MAC stays while L2 learning accepts its address.
    if (wanted && !inUse(key)) {
      VXLAN_TRACE(6, " Adding to localIpMac, key {key}", key);
      activeArpOut_->localIpMacIs(key, zeroMac);
    } else {
      dropLocalIpMac<InLocalArp>(key);
    }
  } else if (wanted) {
    activeArpOut_->localIpIs(key, true);
  } else {
    deleteLocalIp<InLocalArp>(key);
  }
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalArp({key}) return", intf_, key);
}

void NestedSm_VtiStatus::handleLocalArp() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalArp()", intf_);
  for (auto it = activeArpOut_->localIpIter(); !it.done(); it.advance()) {
    Vxlan::VlanIpPair const key = it.currNodeMaybeStale().key;
    if (in()->localIpHas(key) && selected(key)) continue;
    if (destIsL2Capable()) {
      dropLocalIpMac<InLocalArp>(key);  // the localIp entry itself stays
    } else {
      deleteLocalIp<InLocalArp>(key);
    }
  }
  for (auto it = in()->localIpIter(); !it.done(); it.advance()) {
    handleLocalArp(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalArp() return", intf_);
}

// ---- local IP/MAC ----

void NestedSm_VtiStatus::handleLocalIpMac(Vxlan::VlanIpPair const& key) {
  if (!initialized_) return;
  handleLocalIpMacOf(key, in()->localIpMacFind(key));
}

// `inMac` is the input's present entry for the key, null if it has none.
void NestedSm_VtiStatus::handleLocalIpMacOf(Vxlan::VlanIpPair const& key, Lanx::EthAddr const* inMac) {
  VXLAN_TRACE_FN(InLocalIpMac::fn, 5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalIpMac({key})", intf_, key);
  if (destIsL2Capable()) {
    VXLAN_TRACE_FN(InLocalIpMac::fn, 6,
                   " Dest is l2-learning capable - update for both l2-learning and selective-install");
    if (inMac && (l2Installed(key) || selected(key))) {
      Lanx::EthAddr const mac = *inMac;
      Lanx::EthAddr const* const rxMac = rxDestState_ ? rxDestState_->localIpMacFind(key) : nullptr;
      if (rxMac && *rxMac == mac) {
        // Both ends hold the same entry as local: a loop, if the far end can tell.
        if (destVxStatus_ && destVxStatus_->loopDetectionCapable()) {
          VXLAN_TRACE_FN(InLocalIpMac::fn, 6, " Loop detection: writing broadcast MAC for {key} (was {mac})", key, mac);
          activeArpOut_->localIpMacIs(key, Lanx::EthAddr::broadcast());
        } else {
          VXLAN_TRACE_FN(InLocalIpMac::fn, 6,
                         " Not adding new key to localIpMac {key} mac {mac} as entry already in rx dest state", key,
                         mac);
        }
      } else {
        VXLAN_TRACE_FN(InLocalIpMac::fn, 6, " Adding new key to localIpMac {key} mac {mac}", key, mac);
        activeArpOut_->localIpMacIs(key, mac);
      }
    } else {
      Lanx::EthAddr const outMac = activeArpOut_->localIpMac(key);
      if (inMac && l2InstalledAnyVlan(key)) {
        VXLAN_TRACE_FN(
            InLocalIpMac::fn, 6,
            " Not deleting from localIpMac key {key} mac {outMac} as the input entry is still local without SVI "
            "check (L2->L3)",
            key, outMac);
      } else {
        VXLAN_TRACE_FN(InLocalIpMac::fn, 6, " Del existing key from localIpMac {key} mac {outMac}", key, outMac);
        activeArpOut_->localIpMacDel(key);
      }
    }
  } else {
    VXLAN_TRACE_FN(InLocalIpMac::fn, 6, " Dest is not l2-learning capable, update for selective-install only");
    Lanx::EthAddr const mac = inMac ? *inMac : zeroMac;
    if (mac != zeroMac && selected(key)) {
      if (rxDestState_ && rxDestState_->localIpMacHas(key)) {
        VXLAN_TRACE_FN(InLocalIpMac::fn, 6,
                       " Not adding new key to localIp {key} mac 0.0.0 as entry already in rx dest state", key);
      } else {
        VXLAN_TRACE_FN(InLocalIpMac::fn, 6, " Adding new key to localIp {key} mac 0.0.0", key);
        activeArpOut_->localIpIs(key, true);
      }
    } else {
      VXLAN_TRACE_FN(InLocalIpMac::fn, 6, " Del existing`key from localIp {key} mac 0.0.0", key);
      activeArpOut_->localIpDel(key);
    }
  }
  VXLAN_TRACE_FN(InLocalIpMac::fn, 5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalIpMac({key}) return", intf_,
                 key);
}

void NestedSm_VtiStatus::handleLocalIpMac() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalIpMac()", intf_);
  bool const capable = destIsL2Capable();
  VXLAN_TRACE(6, " DestL2LearningCapable {destIsL2Capable}", capable);
  if (capable) {
    for (auto it = activeArpOut_->localIpMacIter(); !it.done(); it.advance()) {
      Vxlan::VlanIpPair const key = it.currNodeMaybeStale().key;
      if (in()->localIpMacHas(key) && (l2Installed(key) || selected(key))) continue;
      deleteLocalIpMac<InLocalIpMac>(key);
    }
  } else {
    activeArpOut_->localIpMacDelAll();
    for (auto it = activeArpOut_->localIpIter(); !it.done(); it.advance()) {
      Vxlan::VlanIpPair const key = it.currNodeMaybeStale().key;
      if (in()->localIpMacHas(key) && selected(key)) continue;
      VXLAN_TRACE(6, " Deleting from localIp {key}", key);
      activeArpOut_->localIpDel(key);
    }
  }
  // The walk stands on the input's entry: no need to look it up again, unless it just went.
  for (auto it = in()->localIpMacIter(); !it.done(); it.advance()) {
    auto& node = it.currNodeMaybeStale();
    handleLocalIpMacOf(node.key, it.currNodeStale() ? in()->localIpMacFind(node.key) : &node.value);
  }
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleLocalIpMac() return", intf_);
}

// Only L2 learning looks at the SVI lists, so only a capable destination has anything to redo.
void NestedSm_VtiStatus::handleValidSviList(Bridging::VlanIdOrNone vlan, Lanx::AddressFamily af) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleValidSviList() vlan {vlan} af {af}", intf_, vlan, af);
  if (!destIsL2Capable()) {
    VXLAN_TRACE(6, " Dest is not l2-learning capable, return");
    return;
  }
  auto const ofVlan = [&](Vxlan::VlanIpPair const& key) {
    return key.ipAddr().af() == af && key.vlanId() == vlan.value();
  };
  for (auto it = in()->localIpIter(); !it.done(); it.advance()) {
    Vxlan::VlanIpPair const key = it.currNodeMaybeStale().key;
    if (ofVlan(key)) handleLocalArp(key);
  }
  for (auto it = in()->localIpMacIter(); !it.done(); it.advance()) {
    Vxlan::VlanIpPair const key = it.currNodeMaybeStale().key;
    if (ofVlan(key)) handleLocalIpMac(key);
  }
  VXLAN_TRACE(5, "ActiveArpP2pSm::VokVtiStatus({intf})::handleValidSviList() vlan {vlan} af {af} return", intf_, vlan,
              af);
}

}  // namespace MlagVxlan
