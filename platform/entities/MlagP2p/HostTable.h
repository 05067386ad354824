// The host table exchanged with the peer.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/MlagP2p.h"

namespace MlagP2p {

#define MLAGP2P_HOST_TABLE_ATTRIBUTES(A) A(records, hostEntry, MlagP2p::HostEntryKey, MlagP2p::HostEntry)

class HostTable : public Vok::Entity {
  VOK_ENTITY(HostTable, "MlagP2p::HostTable", MLAGP2P_HOST_TABLE_ATTRIBUTES)
};

}  // namespace MlagP2p
