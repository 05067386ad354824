#include "Vxlan/SecondarySm.h"

#include <algorithm>
#include <cstdint>

#include "Vxlan/RoleCommon.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

SecondarySm::SecondarySm(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                         Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
                         Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir,
                         Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                         Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                         Brix::Ptr<Mlag::Status const> mlagStatus)
    : sentVxStatus_(std::move(sentVxStatus)),
      recvVxStatus_(this, std::move(recvVxStatus), &recvVxStatusDispatch),
      localVxStatus_(std::move(localVxStatus)),
      bridgingConfig_(this, std::move(bridgingConfig), &bridgingConfigDispatch),
      vlanConfigFlatDir_(this, std::move(vlanConfigFlatDir), &vlanConfigFlatDirDispatch),
      vtiStatusDir_(std::move(vtiStatusDir)),
      vtepStatusDir_(std::move(vtepStatusDir)),
      mlagStatus_(std::move(mlagStatus)) {
  // The ARP reactors make their first runs before this class's own; they wait on nothing but
  // their own flag.
  if (recvVxStatus_) {
    for (auto it = recvVxStatus_->arpStatusIter(); !it.done(); it.advance()) arpStatusIs(it.currNodeMaybeStale().value);
    for (auto it = recvVxStatus_->arpStatusWithVlanIter(); !it.done(); it.advance()) {
      arpStatusWithVlanIs(it.currNodeMaybeStale().value);
    }
  }
  handleInitialized();
}

void SecondarySm::SecondarySmIs(
    Ptr& out, Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
    Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
    Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
    Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir, Brix::Ptr<Mlag::Status const> mlagStatus) {
  Vok::smIs(out, std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus), std::move(bridgingConfig),
            std::move(vlanConfigFlatDir), std::move(vtiStatusDir), std::move(vtepStatusDir), std::move(mlagStatus));
}

SecondarySm::Ptr secondarySmFactory(
    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
    Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
    Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
    Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir, Brix::Ptr<Mlag::Status const> mlagStatus) {
  SecondarySm::Ptr out;
  SecondarySm::SecondarySmIs(out, std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus),
                             std::move(bridgingConfig), std::move(vlanConfigFlatDir), std::move(vtiStatusDir),
                             std::move(vtepStatusDir), std::move(mlagStatus));
  return out;
}

// The two ARP collections follow the peer's tables whatever the state of this object: a reactor
// that goes runs its cleanup. The BFD rows are dropped while it is a zombie.
void SecondarySm::recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                       void const* key, void const*) noexcept {
  using S = Mlag::VxlanStatus;
  auto* self = subscriber->ownerAs<SecondarySm>();
  if (!self->recvVxStatus_) return;
  switch (field) {
    case S::arpStatusField: {
      auto const& vrfName = *static_cast<L3::VrfName const*>(key);
      self->arpStatus_.follow(vrfName, self->recvVxStatus_->arpStatus(vrfName));
      return;
    }
    case S::arpStatusWithVlanField: {
      auto const& vrfName = *static_cast<L3::VrfName const*>(key);
      self->arpStatusWithVlan_.follow(vrfName, self->recvVxStatus_->arpStatusWithVlan(vrfName));
      return;
    }
    default:
      break;
  }
  if (self->zombie()) return;
  Brix::Ptr<SecondarySm> hold(self);
  if (field == S::bfdPeerStatusField) {
    self->handleVtepBfdStatus(*static_cast<Lanx::IpAddr const*>(key));
  } else if (field == S::mlagBfdPeerStatusField) {
    self->handleMlagBfdPeerStatus(*static_cast<Lanx::IpAddr const*>(key));
  } else if (field == S::allVxlanBfdPeerStatusField) {
    self->handleVxlanBfdPeerStatus(*static_cast<Mlag::VtiVtep const*>(key));
  }
}

bool SecondarySm::outsideVlanRange(Bridging::VlanId vlan, std::uint16_t bound1, std::uint16_t bound2) noexcept {
  if (bound1 == 0 && bound2 == 0) return false;
  auto [lo, hi] = std::minmax(bound1, bound2);
  return vlan.value() < lo || vlan.value() > hi;
}

void SecondarySm::handleInitialized() {
  VXLAN_TRACE(5, "SecondarySm::handleInitialized()");
  initialized_ = true;
  // The member count is the whole test: a full set is left alone.
  if (sentVxStatus_->sharedDynVlanCount() != 4094) {
    VXLAN_TRACE(6, " Reset shared dyn vlans");
    for (std::uint16_t vlan = 1; vlan <= 4094; ++vlan) sentVxStatus_->sharedDynVlanIs(Bridging::VlanId(vlan), true);
  }
  std::uint16_t bound1 = bridgingConfig_->vlanRangeBound1();
  std::uint16_t bound2 = bridgingConfig_->vlanRangeBound2();
  for (auto it = sentVxStatus_->sharedDynVlanIter(); !it.done(); it.advance()) {
    Bridging::VlanId vlan = it.currNodeMaybeStale().key;
    if (!outsideVlanRange(vlan, bound1, bound2)) continue;
    VXLAN_TRACE(6, " Del shared dyn vlans outside vlan range");
    sentVxStatus_->sharedDynVlanDel(vlan);
  }
  if (toggleBreakBridgingConfigVlanConfigVxlanEnabled()) {
    handleVlanConfigFlat();
  } else {
    handleVlanConfig();
  }
  handleVtepBfdStatus();
  handleMlagBfdPeerStatus();
  handleVxlanBfdPeerStatus();
  vlanToVniMapSmIs(vtiStatusDir_, sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_, mlagStatus_);
  // A VRF that the peer publishes in neither form is stale here.
  for (auto it = localVxStatus_->arpStatusWithVlanIter(); !it.done(); it.advance()) {
    L3::VrfName vrfName = it.currNodeMaybeStale().key;
    if (recvVxStatus_->arpStatusHas(vrfName) || recvVxStatus_->arpStatusWithVlanHas(vrfName)) continue;
    VXLAN_TRACE(6, " Del stale VRF {vrfName} from localVxStatus", vrfName);
    localVxStatus_->arpStatusWithVlanDel(vrfName);
  }
  VXLAN_TRACE(5, "SecondarySm::handleInitialized() return");
}

// Runs from the teardown only; `initialized` stays true afterwards.
void SecondarySm::doCleanup() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "SecondarySm::doCleanup()");
  roleCleanupOf(*localVxStatus_);
  roleCleanupOf(*sentVxStatus_);
  for (auto it = vxlanBfdStatusSm_.map().begin(); !it.done(); it.advance()) it.currNodeMaybeStale().value->doCleanup();
  vxlanBfdStatusSm_.delAll();
  VXLAN_TRACE(5, "SecondarySm::doCleanup() return");
}

}  // namespace MlagVxlan
