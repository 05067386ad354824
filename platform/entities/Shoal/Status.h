// The switch's FDB and the hosts learned behind VXLAN tunnels, in shared-memory tables.
#pragma once

#include "entities/Shoal/ShoalMap.h"
#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Bridging.h"
#include "types/Shoal.h"
#include "types/Vxlan.h"

namespace Shoal {
namespace Bridging {

#define SHOAL_BRIDGING_STATUS_ATTRIBUTES(A) \
  A(shoal, shoalFdbStatus, ::Bridging::HostKey, ::Shoal::Bridging::ShoalFdbStatus)

class Status : public Vok::Entity {
  VOK_ENTITY(Status, "Shoal::Bridging::Status", SHOAL_BRIDGING_STATUS_ATTRIBUTES)
};

}  // namespace Bridging

namespace Vxlan {

#define SHOAL_VXLAN_FDB_STATUS_ATTRIBUTES(A) A(shoal, learnedHost, ::Vxlan::MacVlanPair, ::Shoal::Vxlan::LearnedHost)

class FdbStatus : public Vok::Entity {
  VOK_ENTITY(FdbStatus, "Shoal::Vxlan::FdbStatus", SHOAL_VXLAN_FDB_STATUS_ATTRIBUTES)
};

}  // namespace Vxlan
}  // namespace Shoal
