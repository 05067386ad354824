// BfdPeerStatusSm: publishes the state of one BFD peer of type VXLAN tunnel of this switch into
// sentVxStatus.allVxlanBfdPeerStatus, under the peer's VTI and address. Peers that differ in
// another field share that entry. Its owner calls doCleanup before it lets the child go.
#pragma once

#include <tuple>

#include "entities/Bfd/StatusPeer.h"
#include "entities/Mlag/VxlanStatus.h"
#include "runtime/StateMachine.h"
#include "types/Bfd.h"

namespace MlagVxlan {

class BfdPeerStatusSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<BfdPeerStatusSm>;

  BfdPeerStatusSm(Bfd::Peer const& peer, Brix::Ptr<Bfd::PeerStatus const> peerStatus,
                  Brix::Ptr<Mlag::VxlanStatus> sentVxStatus);
  static void BfdPeerStatusSmIs(Ptr& out, Bfd::Peer const& peer, Brix::Ptr<Bfd::PeerStatus const> peerStatus,
                                Brix::Ptr<Mlag::VxlanStatus> sentVxStatus);

  char const* typeData() const override { return "MlagVxlan::BfdPeerStatusSm"; }

  Bfd::Peer const& peer() const noexcept { return peer_; }
  Brix::Ptr<Bfd::PeerStatus const> const& peerStatus() const noexcept { return peerStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const { return std::tie(peer_, peerStatus_.ptr(), sentVxStatus_); }

  void handleBfdPeerStatus();
  void handleInitialized();
  void doCleanup();

  static void peerStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                 void const*) noexcept;

 private:
  Mlag::VtiVtep key() const noexcept { return Mlag::VtiVtep(peer_.intf(), peer_.ip()); }

  Bfd::Peer const peer_;
  Vok::Input<Bfd::PeerStatus> peerStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus_;
  bool initialized_ = false;
};

}  // namespace MlagVxlan
