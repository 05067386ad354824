// The older form of a flood list: per MAC and VLAN, the remote VTEPs to flood to.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

namespace Vxlan {

#define VXLAN_BUM_VTEP_LIST_ATTRIBUTES(A)                \
  A(key, macVlanPair, Vxlan::MacVlanPair)                \
  A(scalar, bumVtepIpListType, Vxlan::BumVtepIpListType) \
  A(values, remoteVtepAddr, Lanx::IpAddr, bool)          \
  A(values, remoteVtepAddr6, Lanx::Ip6Addr, bool)

class BumVtepList : public Vok::Entity {
  VOK_ENTITY(BumVtepList, "Vxlan::BumVtepList", VXLAN_BUM_VTEP_LIST_ATTRIBUTES)
 public:
  explicit BumVtepList(Vxlan::MacVlanPair const& macVlanPair) : macVlanPair_(macVlanPair) {}
};

#define VXLAN_BUM_STATUS_ATTRIBUTES(A)                     \
  A(scalar, bumReplicationMode, Vxlan::BumReplicationMode) \
  A(entities, bumVtepList, Vxlan::MacVlanPair, Vxlan::BumVtepList)

class BumStatus : public Vok::Entity {
  VOK_ENTITY(BumStatus, "Vxlan::BumStatus", VXLAN_BUM_STATUS_ATTRIBUTES)
};

}  // namespace Vxlan
