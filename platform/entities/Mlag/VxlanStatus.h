// Mlag::VxlanStatus, the object of the peer exchange. Each switch holds three: sentVxStatus
// (what it publishes), recvVxStatus (the peer's, as received) and localVxStatus (what its own
// agents take from the exchange).
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"

namespace Mlag {

#define MLAG_VXLAN_STATUS_ATTRIBUTES(A) A(scalar, scheduledMlagPeerArpSync, bool)

class VxlanStatus : public Vok::Entity {
  VOK_ENTITY(VxlanStatus, "Mlag::VxlanStatus", MLAG_VXLAN_STATUS_ATTRIBUTES)
};

}  // namespace Mlag
