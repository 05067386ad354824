#include "Vxlan/VlanToVniMapToP2pSm.h"

#include "Vxlan/Trace.h"

namespace MlagVxlan {

namespace {
bool inVlanRange(Bridging::ExtendedVlanId vlan) { return vlan.value() >= 1 && vlan.value() <= 4094; }
}  // namespace

bool isMlagShareable(Vxlan::VniSourcePair& pair, Mlag::MlagState state) {
  std::string_view source = pair.source().view();
  if (source == Vxlan::stringValue(static_cast<Vxlan::VniSource>(32)) ||
      (state == Mlag::MlagState::secondary && source == Vxlan::stringValue(static_cast<Vxlan::VniSource>(1)))) {
    VXLAN_TRACE(6, " isMlagShareable({pair},{state}) return false", pair, Mlag::stringValue(state));
    return false;
  }
  VXLAN_TRACE(6, " isMlagShareable({pair},{state}) return true", pair, Mlag::stringValue(state));
  return true;
}

VlanToVniMapToP2pSm::VlanToVniMapToP2pSm(Lanx::IntfId intfId, Brix::Ptr<Vxlan::VtiStatus const> vtiStatus,
                                         Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Mlag::MlagState mlagState)
    : intfId_(intfId),
      vtiStatus_(this, std::move(vtiStatus), &vtiStatusDispatch),
      sentVxStatus_(std::move(sentVxStatus)),
      mlagState_(mlagState) {
  handleInitialized();
}

void VlanToVniMapToP2pSm::VlanToVniMapToP2pSmIs(Ptr& out, Lanx::IntfId intfId,
                                                Brix::Ptr<Vxlan::VtiStatus const> vtiStatus,
                                                Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Mlag::MlagState mlagState) {
  Vok::smIs(out, intfId, std::move(vtiStatus), std::move(sentVxStatus), mlagState);
}

VlanToVniMapToP2pSm::Ptr vlanToVniMapToP2pSmFactory(Lanx::IntfId intfId, Brix::Ptr<Vxlan::VtiStatus const> vtiStatus,
                                                    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                                    Mlag::MlagState mlagState) {
  VlanToVniMapToP2pSm::Ptr out;
  VlanToVniMapToP2pSm::VlanToVniMapToP2pSmIs(out, intfId, std::move(vtiStatus), std::move(sentVxStatus), mlagState);
  return out;
}

void VlanToVniMapToP2pSm::vtiStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                            void const* key, void const*) noexcept {
  if (field != Vxlan::VtiStatus::extendedVlanToVniMapField) return;
  auto* self = subscriber->ownerAs<VlanToVniMapToP2pSm>();
  if (self->zombie()) return;
  self->handleVlanToVniMap(*static_cast<Bridging::ExtendedVlanId const*>(key));
}

void VlanToVniMapToP2pSm::unpublish(Vxlan::VniExt vni) {
  sentVxStatus_->vniVtiToDynVlanMapDel(Vxlan::VniVtiPair(vni, intfId_));
  if (intfId_ == ::Vxlan1) sentVxStatus_->vniToDynVlanMapDel(vni);
}

void VlanToVniMapToP2pSm::handleVlanToVniMap(Bridging::ExtendedVlanId vlan) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VlanToVniMapToP2pSm::handleVlanToVniMap({vlan})", vlan);
  Vxlan::VniSourcePair pair = vtiStatus_ ? vtiStatus_->extendedVlanToVniMap(vlan) : Vxlan::VniSourcePair();

  if (pair == Vxlan::VniSourcePair()) {
    // No mapping: withdraw what was published for this VLAN, if anything was.
    Vxlan::VniExtOrNone shadowVni = shadowVlanToVniMap(vlan);
    if (!shadowVni.isNone()) {
      VXLAN_TRACE(6, " Deleting VLAN ({vlan}) to VNI ({shadowVni}) for VTI ({intfId}) from peer", vlan, shadowVni,
                  intfId_.shortName());
      shadowVlanToVniMapDel(vlan);
      unpublish(Vxlan::VniExt(shadowVni));
    }
  } else {
    // Retire what stands for this VLAN, even when it is the same VNI: it is written again below.
    Vxlan::VniExtOrNone oldVni = shadowVlanToVniMap(vlan);
    if (!oldVni.isNone()) {
      VXLAN_TRACE(6, " Removing stale VNI {oldVni}", oldVni);
      unpublish(Vxlan::VniExt(oldVni));
    }
    // And what stands for this VNI: another VLAN that held it loses its shadow entry.
    Vxlan::VniVtiPair key(pair.vni(), intfId_);
    Bridging::ExtendedVlanId staleVlan = sentVxStatus_->vniVtiToDynVlanMap(key);
    if (!staleVlan.isNone()) {
      VXLAN_TRACE(6, " Removing stale VLAN {staleVlan}", staleVlan);
      shadowVlanToVniMapDel(staleVlan);
    }

    Vxlan::VniExt vni = key.vni();
    if (isMlagShareable(pair, mlagState_)) {
      VXLAN_TRACE(6, " Syncing VLAN ({vlan}) to VNI ({vni}) for VTI ({intfId}) to peer", vlan, vni,
                  intfId_.shortName());
      shadowVlanToVniMapIs(vlan, vni);
      sentVxStatus_->vniVtiToDynVlanMapIs(key, vlan);
      if (intfId_ == ::Vxlan1 && inVlanRange(vlan)) sentVxStatus_->vniToDynVlanMapIs(vni, vlan.vlanIdOrNone());
    } else {
      VXLAN_TRACE(6, " Not syncing VLAN ({vlan}) to VNI ({vni}) for VTI ({intfId})", vlan, vni, intfId_.shortName());
    }
  }
  VXLAN_TRACE(5, "VlanToVniMapToP2pSm::handleVlanToVniMap({vlan}) return", vlan);
}

void VlanToVniMapToP2pSm::handleVlanToVniMap() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VlanToVniMapToP2pSm::handleVlanToVniMap()");
  // What an earlier instance left published for this VTI and the input no longer has.
  for (auto it = sentVxStatus_->vniVtiToDynVlanMapIter(); !it.done(); it.advance()) {
    Vxlan::VniVtiPair key = it.currNodeMaybeStale().key;
    Bridging::ExtendedVlanId evid = it.currNodeMaybeStale().value;
    assert(!evid.isNone() && "!!evid");
    if (key.intfId() != intfId_) continue;
    Vxlan::VniSourcePair pair = vtiStatus_ ? vtiStatus_->extendedVlanToVniMap(evid) : Vxlan::VniSourcePair();
    if (pair.vni() == Vxlan::VniExtOrNone(key.vni())) continue;
    VXLAN_TRACE(6, "Del stale vni {vni} for vti {intfId}", key.vni(), intfId_.shortName());
    unpublish(key.vni());
  }
  if (vtiStatus_) {
    for (auto it = vtiStatus_->extendedVlanToVniMapIter(); !it.done(); it.advance()) {
      handleVlanToVniMap(it.currNodeMaybeStale().key);
    }
  }
  VXLAN_TRACE(5, "VlanToVniMapToP2pSm::handleVlanToVniMap() return");
}

void VlanToVniMapToP2pSm::handleInitialized() {
  VXLAN_TRACE(5, "VlanToVniMapToP2pSm::handleInitialized()");
  initialized_ = true;
  handleVlanToVniMap();
  VXLAN_TRACE(5, "VlanToVniMapToP2pSm::handleInitialized() return");
}

// Withdraws the whole published map, the entries of other VTIs included.
void VlanToVniMapToP2pSm::cleanup() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VlanToVniMapToP2pSm::cleanup()");
  sentVxStatus_->vniToDynVlanMapDelAll();
  sentVxStatus_->vniVtiToDynVlanMapDelAll();
}

}  // namespace MlagVxlan
