#include "Vxlan/PrimarySm.h"

#include <cstdint>

#include "Vxlan/RoleCommon.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

PrimarySm::PrimarySm(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                     Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                     Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                     Brix::Ptr<Arp::InputConfig const> arpInputConfig, Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer,
                     Brix::Ptr<Mlag::Status const> mlagStatus)
    : sentVxStatus_(std::move(sentVxStatus)),
      recvVxStatus_(this, std::move(recvVxStatus), &recvVxStatusDispatch),
      localVxStatus_(std::move(localVxStatus)),
      vtiStatusDir_(std::move(vtiStatusDir)),
      vtepStatusDir_(this, std::move(vtepStatusDir), &vtepStatusDirDispatch),
      arpInputConfig_(this, std::move(arpInputConfig), &arpInputConfigDispatch),
      bfdStatusPeer_(this, std::move(bfdStatusPeer), &bfdStatusPeerDispatch),
      mlagStatus_(std::move(mlagStatus)) {
  // Each VTEP status entry's and each VRF's reactor makes its first run as it is made, before
  // this class's own.
  if (vtepStatusDir_) {
    for (auto it = vtepStatusDir_->vtepStatusV2Iter(); !it.done(); it.advance()) {
      vtepStatusIs(it.currNodeMaybeStale().value);
    }
  }
  if (arpInputConfig_) {
    for (auto it = arpInputConfig_->vrfIter(); !it.done(); it.advance()) vrfIs(it.value());
  }
  handleInitialized();
}

void PrimarySm::PrimarySmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                            Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus, Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                            Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                            Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                            Brix::Ptr<Arp::InputConfig const> arpInputConfig, Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer,
                            Brix::Ptr<Mlag::Status const> mlagStatus) {
  Vok::smIs(out, std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus), std::move(vtiStatusDir),
            std::move(vtepStatusDir), std::move(arpInputConfig), std::move(bfdStatusPeer), std::move(mlagStatus));
}

PrimarySm::Ptr primarySmFactory(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                                Brix::Ptr<Arp::InputConfig const> arpInputConfig,
                                Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer, Brix::Ptr<Mlag::Status const> mlagStatus) {
  PrimarySm::Ptr out;
  PrimarySm::PrimarySmIs(out, std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus),
                         std::move(vtiStatusDir), std::move(vtepStatusDir), std::move(arpInputConfig),
                         std::move(bfdStatusPeer), std::move(mlagStatus));
  return out;
}

// The collection follows the input whatever the state of this object: a reactor that goes runs
// its cleanup.
void PrimarySm::arpInputConfigDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                       void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<PrimarySm>();
  if (field != Arp::InputConfig::vrfField || !self->arpInputConfig_) return;
  auto const& name = *static_cast<L3::VrfName const*>(key);
  self->vrf_.follow(name, self->arpInputConfig_->vrf(name));
}

void PrimarySm::recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                     void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<PrimarySm>();
  if (field != Mlag::VxlanStatus::sharedDynVlanField || self->zombie()) return;
  self->handleSharedDynVlan(*static_cast<Bridging::VlanId const*>(key));
}

// The collection follows the directory whatever the state of this object, like the VRFs.
void PrimarySm::vtepStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                      void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<PrimarySm>();
  if (field != VxlanController::VtepStatusDirV2::vtepStatusV2Field || !self->vtepStatusDir_) return;
  auto const& name = *static_cast<Brix::String const*>(key);
  self->vtepStatus_.follow(name, self->vtepStatusDir_->vtepStatusV2(name));
}

void PrimarySm::bfdStatusPeerDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                      void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<PrimarySm>();
  if (field != Bfd::StatusPeer::peerStatusField || self->zombie()) return;
  Brix::Ptr<PrimarySm> hold(self);
  self->handleBfdPeerStatus(*static_cast<Bfd::Peer const*>(key));
}

// Without an ARP input no VRF is configured, so whatever a former role published is stale.
bool PrimarySm::vrfConfigured(L3::VrfName const& vrf) const {
  return arpInputConfig_ && arpInputConfig_->vrf(vrf) != nullptr;
}

void PrimarySm::handleInitialized() {
  VXLAN_TRACE(5, "PrimarySm::handleInitialized()");
  initialized_ = true;
  handleBfdPeerStatus();
  handleSharedDynVlan();
  // The exchange child is made here, once this role acts, and makes its own first run.
  vlanToVniMapSmIs(vtiStatusDir_, sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_, mlagStatus_);
  // What the long-lived sentVxStatus still holds of VRFs that are no longer configured.
  for (auto it = sentVxStatus_->arpStatusIter(); !it.done(); it.advance()) {
    L3::VrfName vrf = it.currNodeMaybeStale().key;
    if (vrfConfigured(vrf)) continue;
    VXLAN_TRACE(6, " Del stale VRF {vrf} from sentVxStatus arpStatus", vrf);
    sentVxStatus_->arpStatusDel(vrf);
  }
  for (auto it = sentVxStatus_->arpStatusWithVlanIter(); !it.done(); it.advance()) {
    L3::VrfName vrf = it.currNodeMaybeStale().key;
    if (vrfConfigured(vrf)) continue;
    VXLAN_TRACE(6, " Del stale VRF {vrf} from sentVxStatus arpStatusWithVlan", vrf);
    sentVxStatus_->arpStatusWithVlanDel(vrf);
  }
  VXLAN_TRACE(5, "PrimarySm::handleInitialized() return");
}

void PrimarySm::handleSharedDynVlan(Bridging::VlanId vlan) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "PrimarySm::handleSharedDynVlan({vlan})", vlan);
  if (recvVxStatus_->sharedDynVlan(vlan)) {
    if (!localVxStatus_->sharedDynVlan(vlan)) VXLAN_TRACE(6, " Added shared dynVlan {vlan}", vlan);
    localVxStatus_->sharedDynVlanIs(vlan, true);
  } else {
    VXLAN_TRACE(6, " Del shared dynVlan {vlan}", vlan);
    (void)localVxStatus_->sharedDynVlanDel(vlan);
  }
  VXLAN_TRACE(5, "PrimarySm::handleSharedDynVlan({vlan}) return", vlan);
}

// The local walk comes first, so the keys the peer does not share are gone before the count.
void PrimarySm::handleSharedDynVlan() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "PrimarySm::handleSharedDynVlan()");
  VXLAN_TRACE(6, " SharedDynVlan before {count}", std::uint32_t(localVxStatus_->sharedDynVlanCount()));
  VXLAN_TRACE(6, " Processing localVxStatus");
  for (auto it = localVxStatus_->sharedDynVlanIter(); !it.done(); it.advance()) {
    handleSharedDynVlan(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(6, " Processing recvVxStatus");
  for (auto it = recvVxStatus_->sharedDynVlanIter(); !it.done(); it.advance()) {
    handleSharedDynVlan(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(6, " SharedDynVlan after {count}", std::uint32_t(localVxStatus_->sharedDynVlanCount()));
  VXLAN_TRACE(5, "PrimarySm::handleSharedDynVlan() return");
}

// Runs from the teardown only. Nothing was published before the first run, so nothing to undo.
void PrimarySm::doCleanup() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "PrimarySm::doCleanup()");
  roleCleanupOf(*localVxStatus_);
  roleCleanupOf(*sentVxStatus_);
  for (auto it = bfdPeerStatusSm_.map().begin(); !it.done(); it.advance()) it.currNodeMaybeStale().value->doCleanup();
  bfdPeerStatusSmDelAll();
  VXLAN_TRACE(5, "PrimarySm::doCleanup() return");
}

}  // namespace MlagVxlan
