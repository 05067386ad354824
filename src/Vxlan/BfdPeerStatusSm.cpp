#include "Vxlan/BfdPeerStatusSm.h"

#include "Vxlan/Trace.h"

namespace MlagVxlan {

BfdPeerStatusSm::BfdPeerStatusSm(Bfd::Peer const& peer, Brix::Ptr<Bfd::PeerStatus const> peerStatus,
                                 Brix::Ptr<Mlag::VxlanStatus> sentVxStatus)
    : peer_(peer),
      peerStatus_(this, std::move(peerStatus), &peerStatusDispatch),
      sentVxStatus_(std::move(sentVxStatus)) {
  handleInitialized();
}

void BfdPeerStatusSm::BfdPeerStatusSmIs(Ptr& out, Bfd::Peer const& peer, Brix::Ptr<Bfd::PeerStatus const> peerStatus,
                                        Brix::Ptr<Mlag::VxlanStatus> sentVxStatus) {
  Vok::smIs(out, peer, std::move(peerStatus), std::move(sentVxStatus));
}

void BfdPeerStatusSm::peerStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                         void const*, void const*) noexcept {
  auto* self = subscriber->ownerAs<BfdPeerStatusSm>();
  if (field != Bfd::PeerStatus::operStateField || self->zombie()) return;
  self->handleBfdPeerStatus();
}

void BfdPeerStatusSm::handleInitialized() {
  VXLAN_TRACE(5, "BfdPeerStatusSm({peer})::handleInitialized() return", peer_.ip());
  initialized_ = true;
  handleBfdPeerStatus();
}

void BfdPeerStatusSm::handleBfdPeerStatus() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "BfdPeerStatusSm({peer})::handleBfdPeerStatus()", peer_.ip());
  Bfd::OperState const operState = peerStatus_ ? peerStatus_->operState() : Bfd::OperState{};
  VXLAN_TRACE(6, "Bfd peer IP: {peer} peer status: {operState}", peer_.ip(), operState);
  sentVxStatus_->allVxlanBfdPeerStatusIs(key())->operStateIs(operState);
  VXLAN_TRACE(5, "BfdPeerStatusSm({peer})::handleBfdPeerStatus() return", peer_.ip());
}

// Clears `initialized` first, so that a notification still in flight no longer writes.
void BfdPeerStatusSm::doCleanup() {
  VXLAN_TRACE(5, "BfdPeerStatusSm({peer})::doCleanup()", peer_.ip());
  initialized_ = false;
  sentVxStatus_->allVxlanBfdPeerStatusDel(key());
  VXLAN_TRACE(5, "BfdPeerStatusSm({peer})::doCleanup() return", peer_.ip());
}

}  // namespace MlagVxlan
