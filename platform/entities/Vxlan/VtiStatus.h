// The status of the VXLAN tunnel interfaces (VTIs), one entity per VTI in a directory.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

namespace Vxlan {

#define VXLAN_VTI_STATUS_ATTRIBUTES(A)                            \
  A(key, intfId, Lanx::IntfId)                                    \
  A(scalar, localVtepAddr, Lanx::IpAddr)                          \
  A(scalar, localVtepAddr6, Lanx::Ip6Addr)                        \
  A(scalar, alternateVtepAddr, Lanx::IpAddr)                      \
  A(scalar, alternateVtepAddr6, Lanx::Ip6Addr)                    \
  A(scalar, mlagVtepAddr, Lanx::IpAddr)                           \
  A(scalar, mlagVtepAddr6, Lanx::Ip6Addr)                         \
  A(values, vlanToVniMap, Bridging::VlanId, Vxlan::VniSourcePair) \
  A(values, extendedVlanToVniMap, Bridging::ExtendedVlanId, Vxlan::VniSourcePair)

class VtiStatus : public Vok::Entity {
  VOK_ENTITY(VtiStatus, "Vxlan::VtiStatus", VXLAN_VTI_STATUS_ATTRIBUTES)
 public:
  explicit VtiStatus(Lanx::IntfId const& intfId) : intfId_(intfId) {}
};

#define VXLAN_VTI_STATUS_DIR_ATTRIBUTES(A) A(entities, vtiStatus, Lanx::IntfId, Vxlan::VtiStatus)

class VtiStatusDir : public Vok::Entity {
  VOK_ENTITY(VtiStatusDir, "Vxlan::VtiStatusDir", VXLAN_VTI_STATUS_DIR_ATTRIBUTES)
};

}  // namespace Vxlan
