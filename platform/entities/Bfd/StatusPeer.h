// The BFD agent's peers and their operational states. Read only here.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Bfd.h"

namespace Bfd {

#define BFD_PEER_STATUS_ATTRIBUTES(A) A(scalar, operState, Bfd::OperState)

class PeerStatus : public Vok::Entity {
  VOK_ENTITY(PeerStatus, "Bfd::PeerStatus", BFD_PEER_STATUS_ATTRIBUTES)
 public:
  PeerStatus() = default;
  // A member of StatusPeer is made by its key; the key itself stays with the collection.
  explicit PeerStatus(Bfd::Peer const&) {}
};

#define BFD_STATUS_PEER_ATTRIBUTES(A) A(entities, peerStatus, Bfd::Peer, Bfd::PeerStatus)

class StatusPeer : public Vok::Entity {
  VOK_ENTITY(StatusPeer, "Bfd::StatusPeer", BFD_STATUS_PEER_ATTRIBUTES)
};

}  // namespace Bfd
