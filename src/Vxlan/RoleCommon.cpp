#include "Vxlan/RoleCommon.h"

#include <cstdint>

namespace MlagVxlan {

void roleCleanupOf(Mlag::VxlanStatus& status) {
  for (std::uint16_t vlan = 1; vlan <= 4094; ++vlan) status.sharedDynVlanIs(Bridging::VlanId(vlan), true);
  status.bfdPeerStatusDelAll();
  status.mlagBfdPeerStatusDelAll();
  status.vtepTypeAddrDelAll();
  status.vtepTypeAddr6DelAll();
}

}  // namespace MlagVxlan
