// An active ARP table: the addresses behind the far side and local to this side, by VLAN.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

namespace Vxlan {

#define VXLAN_ACTIVE_ARP_IP_TABLE_ATTRIBUTES(A)           \
  A(values, remoteIp, Vxlan::VlanIpPair, bool)            \
  A(values, localIp, Vxlan::VlanIpPair, bool)             \
  A(scalar, arpSelectiveInstall, bool)                    \
  A(scalar, arpSelectiveInstall2, bool)                   \
  A(scalar, l2LearningCapable, bool)                      \
  A(values, localIpMac, Vxlan::VlanIpPair, Lanx::EthAddr) \
  A(values, validSvi, Bridging::VlanIdOrNone, bool)       \
  A(values, validSvi6, Bridging::VlanIdOrNone, bool)

class ActiveArpIpTable : public Vok::Entity {
  VOK_ENTITY(ActiveArpIpTable, "Vxlan::ActiveArpIpTable", VXLAN_ACTIVE_ARP_IP_TABLE_ATTRIBUTES)
};

}  // namespace Vxlan
