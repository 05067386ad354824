// The L2 VPN configuration: the two switches of the enable test of active ARP.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"

namespace Routing::L2Vpn {

#define ROUTING_L2VPN_CONFIG_ATTRIBUTES(A) \
  A(scalar, l2LearningSwitch1, bool)       \
  A(scalar, l2LearningSwitch2, bool)

class Config : public Vok::Entity {
  VOK_ENTITY(Config, "Routing::L2Vpn::Config", ROUTING_L2VPN_CONFIG_ATTRIBUTES)
};

}  // namespace Routing::L2Vpn
