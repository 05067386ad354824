// What the VXLAN controller reports: per VTEP its BFD peers, and per VNI the MACs it learned.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "runtime/String.h"
#include "types/Lanx.h"
#include "types/VxlanController.h"

namespace VxlanController {

#define VXLAN_CONTROLLER_VTEP_STATUS_V2_ATTRIBUTES(A) \
  A(key, name, Brix::String)                          \
  A(records, bfdPeerStatus, Lanx::IpAddr, VxlanController::BfdPeerStatusV2)

class VtepStatusV2 : public Vok::Entity {
  VOK_ENTITY(VtepStatusV2, "VxlanController::VtepStatusV2", VXLAN_CONTROLLER_VTEP_STATUS_V2_ATTRIBUTES)
 public:
  explicit VtepStatusV2(Brix::String const& name) : name_(name) {}
};

#define VXLAN_CONTROLLER_VTEP_STATUS_DIR_V2_ATTRIBUTES(A) \
  A(entities, vtepStatusV2, Brix::String, VxlanController::VtepStatusV2)

class VtepStatusDirV2 : public Vok::Entity {
  VOK_ENTITY(VtepStatusDirV2, "VxlanController::VtepStatusDirV2", VXLAN_CONTROLLER_VTEP_STATUS_DIR_V2_ATTRIBUTES)
};

#define VXLAN_CONTROLLER_VNI_FDB_STATUS_V2_ATTRIBUTES(A) \
  A(values, macVtepTable, Lanx::EthAddr, VxlanController::MacVtepV2)

class VniFdbStatusV2 : public Vok::Entity {
  VOK_ENTITY(VniFdbStatusV2, "VxlanController::VniFdbStatusV2", VXLAN_CONTROLLER_VNI_FDB_STATUS_V2_ATTRIBUTES)
};

}  // namespace VxlanController
