// The primary's BFD publication: one reactor per entry of the controller's VTEP status, and one
// child per BFD peer of type VXLAN tunnel.
#include "Vxlan/PrimarySm.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

using Row = VxlanController::BfdPeerStatusV2;

PrimarySm::NestedSm_VtepStatus::NestedSm_VtepStatus(Brix::Ptr<VxlanController::VtepStatusV2 const> const& vtepStatus,
                                                    PrimarySm* primarySm)
    : Reactor(vtepStatus, primarySm) {
  handleInitialized();
}

void PrimarySm::NestedSm_VtepStatus::onAttribute(Brix::FieldId field, void const* key) {
  if (field != VxlanController::VtepStatusV2::bfdPeerStatusField || zombie() || !owner()) return;
  handleVtepBfdStatus(*static_cast<Lanx::IpAddr const*>(key));
}

void PrimarySm::NestedSm_VtepStatus::handleInitialized() {
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::handleInitialized()", name());
  isMlagVtepStatus_ = isMlagEntryName(name().view());
  initialized_ = true;
  handleVtepBfdStatus();
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::handleInitialized() return", name());
}

bool PrimarySm::NestedSm_VtepStatus::reportedByItsKind(Lanx::IpAddr ip) const {
  auto const& dir = owner()->vtepStatusDir();
  if (!dir) return false;
  for (auto it = dir->vtepStatusV2Iter(); !it.done(); it.advance()) {
    auto const& entry = *it.currNodeMaybeStale().value;
    if (isMlagEntryName(entry.name().view()) == isMlagVtepStatus_ && !entry.bfdPeerStatus(ip).isEq(Row{})) return true;
  }
  return false;
}

void PrimarySm::NestedSm_VtepStatus::handleVtepBfdStatus() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::handleVtepBfdStatus()", name());
  auto& sent = *owner()->sentVxStatus();
  auto dropStale = [&](auto it) {
    for (; !it.done(); it.advance()) {
      Lanx::IpAddr const ip = it.currNodeMaybeStale().key;
      if (!reportedByItsKind(ip)) applyStatus(ip, Row{});
    }
  };
  if (isMlagVtepStatus_) {
    dropStale(sent.mlagBfdPeerStatusIter());
  } else {
    dropStale(sent.bfdPeerStatusIter());
  }
  for (auto it = input()->bfdPeerStatusIter(); !it.done(); it.advance()) {
    handleVtepBfdStatus(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::handleVtepBfdStatus() return", name());
}

void PrimarySm::NestedSm_VtepStatus::handleVtepBfdStatus(Lanx::IpAddr ip) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::handleVtepBfdStatus({ip})", name(), ip);
  applyStatus(ip, input()->bfdPeerStatus(ip));
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::handleVtepBfdStatus({ip}) return", name(), ip);
}

void PrimarySm::NestedSm_VtepStatus::applyStatus(Lanx::IpAddr ip, Row const& status) {
  auto& sent = *owner()->sentVxStatus();
  bool const present = !status.isEq(Row{});
  if (present && isMlagVtepStatus_) {
    VXLAN_TRACE_FN("handleVtepBfdStatus", 6, "Add Mlag bfd status");
    sent.mlagBfdPeerStatusIs(status);
  } else if (present) {
    VXLAN_TRACE_FN("handleVtepBfdStatus", 6, "Add bfd status");
    sent.bfdPeerStatusIs(status);
  } else if (isMlagVtepStatus_) {
    VXLAN_TRACE_FN("handleVtepBfdStatus", 6, "Del Mlag bfd status");
    (void)sent.mlagBfdPeerStatusDel(ip);
  } else {
    VXLAN_TRACE_FN("handleVtepBfdStatus", 6, "Del bfd status");
    (void)sent.bfdPeerStatusDel(ip);
  }
}

// Empties its kind's collection whole, also of what another entry of the kind published.
void PrimarySm::NestedSm_VtepStatus::cleanup() {
  if (!initialized_ || !owner()) return;
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::cleanup()", name());
  auto& sent = *owner()->sentVxStatus();
  if (isMlagVtepStatus_) {
    VXLAN_TRACE(6, " Clear Mlag BFD Peer Status");
    sent.mlagBfdPeerStatusDelAll();
  } else {
    VXLAN_TRACE(6, " Clear BFD Peer Status");
    sent.bfdPeerStatusDelAll();
  }
  VXLAN_TRACE(5, "PrimarySm::VokVtepStatus({name})::cleanup() return", name());
}

void PrimarySm::dropBfdPeerStatusSm(Bfd::Peer const& peer) {
  if (auto child = bfdPeerStatusSmDel(peer)) child->doCleanup();
}

void PrimarySm::handleBfdPeerStatus() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "PrimarySm::handleBfdPeerStatus()");
  for (auto it = bfdPeerStatusSm_.map().begin(); !it.done(); it.advance()) {
    Bfd::Peer const peer = it.currNodeMaybeStale().key;
    if (bfdStatusPeer_->peerStatusHas(peer)) continue;
    VXLAN_TRACE(6, " Del Stale {peer}", peer.ip());
    dropBfdPeerStatusSm(peer);
  }
  for (auto it = bfdStatusPeer_->peerStatusIter(); !it.done(); it.advance()) {
    handleBfdPeerStatus(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "PrimarySm::handleBfdPeerStatus() return");
}

void PrimarySm::handleBfdPeerStatus(Bfd::Peer const& peer) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "PrimarySm::handleBfdPeerStatus({peer})", peer.ip());
  if (peer.type() != Bfd::Peer::typeVxlanTunnel) {
    VXLAN_TRACE(5, "PrimarySm::handleBfdPeerStatus({peer}) return Non Vxlan tunnel", peer.ip());
    return;
  }
  if (auto entry = bfdStatusPeer_->peerStatus(peer)) {
    // The BFD agent's entry deleted and made again under the peer while this role did not hear
    // of it: the old child withdraws before the new one publishes.
    bfdPeerStatusSm_.isDroppingOther([this](Bfd::Peer const& p) { dropBfdPeerStatusSm(p); }, peer, entry,
                                     sentVxStatus_);
  } else {
    dropBfdPeerStatusSm(peer);
  }
  VXLAN_TRACE(5, "PrimarySm::handleBfdPeerStatus({peer}) return", peer.ip());
}

}  // namespace MlagVxlan
