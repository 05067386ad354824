#include "Vxlan/VniToDynVlanMapToCorestateSm.h"

#include "Vxlan/Trace.h"

namespace MlagVxlan {

VniToDynVlanMapToCorestateSm::VniToDynVlanMapToCorestateSm(Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                           Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                                           Mlag::MlagState mlagState)
    : recvVxStatus_(this, std::move(recvVxStatus), &recvVxStatusDispatch),
      localVxStatus_(std::move(localVxStatus)),
      mlagState_(mlagState) {
  handleInitialized();
}

void VniToDynVlanMapToCorestateSm::VniToDynVlanMapToCorestateSmIs(Ptr& out,
                                                                  Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                                  Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                                                  Mlag::MlagState mlagState) {
  Vok::smIs(out, std::move(recvVxStatus), std::move(localVxStatus), mlagState);
}

VniToDynVlanMapToCorestateSm::Ptr vniToDynVlanMapToCorestateSmFactory(Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                                      Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                                                      Mlag::MlagState mlagState) {
  VniToDynVlanMapToCorestateSm::Ptr out;
  VniToDynVlanMapToCorestateSm::VniToDynVlanMapToCorestateSmIs(out, std::move(recvVxStatus), std::move(localVxStatus),
                                                               mlagState);
  return out;
}

void VniToDynVlanMapToCorestateSm::recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber,
                                                        Brix::FieldId field, void const* key, void const*) noexcept {
  if (field != Mlag::VxlanStatus::vniToDynVlanMapField && field != Mlag::VxlanStatus::vniVtiToDynVlanMapField) return;
  auto* self = subscriber->ownerAs<VniToDynVlanMapToCorestateSm>();
  if (self->zombie()) return;
  if (field == Mlag::VxlanStatus::vniToDynVlanMapField) {
    self->handleVniToDynVlanMap(*static_cast<Vxlan::VniExtOrNone const*>(key));
  } else {
    self->handleVniVtiToDynVlanMap(*static_cast<Vxlan::VniVtiPair const*>(key));
  }
}

Bridging::ExtendedVlanId VniToDynVlanMapToCorestateSm::recvVniVti(Vxlan::VniVtiPair const& key) const {
  return recvVxStatus_ ? recvVxStatus_->vniVtiToDynVlanMap(key) : Bridging::ExtendedVlanId();
}

Bridging::ExtendedVlanId VniToDynVlanMapToCorestateSm::recvVni(Vxlan::VniExtOrNone vni) const {
  return recvVxStatus_ ? Bridging::ExtendedVlanId(recvVxStatus_->vniToDynVlanMap(vni)) : Bridging::ExtendedVlanId();
}

void VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(Vxlan::VniVtiPair const& key) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap({vni}, {intfId})", key.vni(),
              key.intfId().shortName());
  // VNI 0 is never applied on the primary (it has an applier only in multi-VTEP MLAG).
  if (key.vni().value() == 0 && mlagState_ == Mlag::MlagState::primary) {
    VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap({vni}) return Delete VNI 0 on primary",
                key.vni());
    localVxStatus_->vniVtiToDynVlanMapDel(key);
    return;
  }
  Bridging::ExtendedVlanId vlan = recvVniVti(key);
  if (vlan.isNone() && key.intfId() == ::Vxlan1) vlan = recvVni(key.vni());
  if (!vlan.isNone()) {
    VXLAN_TRACE(6, " Adding VNI/VTI ({vni}, {intfId}) to VLAN ({vlan})", key.vni(), key.intfId().shortName(), vlan);
    localVxStatus_->vniVtiToDynVlanMapIs(key, vlan);
  } else {
    VXLAN_TRACE(6, " Del VNI/VTI ({vni}, {intfId})", key.vni(), key.intfId().shortName());
    localVxStatus_->vniVtiToDynVlanMapDel(key);
  }
  VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap({vni}, {intfId}) return", key.vni(),
              key.intfId().shortName());
}

void VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(Vxlan::VniExtOrNone vni) {
  VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap({vni})", vni);
  handleVniVtiToDynVlanMap(Vxlan::VniVtiPair(vni, ::Vxlan1));
  VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap({vni}) return", vni);
}

void VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VniVtiToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap()");
  // What the peer no longer holds in either collection. The older collection keeps an entry of
  // any VTI whose VNI it has.
  for (auto it = localVxStatus_->vniVtiToDynVlanMapIter(); !it.done(); it.advance()) {
    Vxlan::VniVtiPair key = it.currNodeMaybeStale().key;
    if (!recvVni(key.vni()).isNone() || !recvVniVti(key).isNone()) continue;
    VXLAN_TRACE(6, " Removing stale VNI {vni} VTI {intfId}", key.vni(), key.intfId().shortName());
    localVxStatus_->vniVtiToDynVlanMapDel(key);
  }
  if (recvVxStatus_) {
    for (auto it = recvVxStatus_->vniToDynVlanMapIter(); !it.done(); it.advance()) {
      handleVniVtiToDynVlanMap(Vxlan::VniVtiPair(it.currNodeMaybeStale().key, ::Vxlan1));
    }
    for (auto it = recvVxStatus_->vniVtiToDynVlanMapIter(); !it.done(); it.advance()) {
      handleVniVtiToDynVlanMap(it.currNodeMaybeStale().key);
    }
  }
  VXLAN_TRACE(5, "VniVtiToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap() return");
}

void VniToDynVlanMapToCorestateSm::handleInitialized() {
  VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::handleInitialized()");
  initialized_ = true;
  handleVniVtiToDynVlanMap();
  VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::handleInitialized() return");
}

// Withdraws every dynamic VLAN request of this side; unlike the publishers it has no guard.
void VniToDynVlanMapToCorestateSm::cleanup() {
  VXLAN_TRACE(5, "VniToDynVlanMapToCorestateSm::cleanup()");
  localVxStatus_->vniToDynVlanMapDelAll();
  localVxStatus_->vniVtiToDynVlanMapDelAll();
}

}  // namespace MlagVxlan
