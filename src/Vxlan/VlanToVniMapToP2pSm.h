// VlanToVniMapToP2pSm: publishes the VLAN-to-VNI map of one VTI to the MLAG peer, through
// sentVxStatus's vniVtiToDynVlanMap (every VTI) and the older vniToDynVlanMap (Vxlan1 only,
// VLANs 1 to 4094). Only shareable mappings go out (isMlagShareable). The shadow map remembers
// the VNI last published or retired for each VLAN, since the input no longer tells what a VLAN
// was mapped to once its mapping has changed or gone.
#pragma once

#include <tuple>

#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "runtime/StateMachine.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/Vxlan.h"

namespace MlagVxlan {

class VlanToVniMapToP2pSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<VlanToVniMapToP2pSm>;

  VlanToVniMapToP2pSm(Lanx::IntfId intfId, Brix::Ptr<Vxlan::VtiStatus const> vtiStatus,
                      Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Mlag::MlagState mlagState);
  static void VlanToVniMapToP2pSmIs(Ptr& out, Lanx::IntfId intfId, Brix::Ptr<Vxlan::VtiStatus const> vtiStatus,
                                    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Mlag::MlagState mlagState);

  char const* typeData() const override { return "MlagVxlan::VlanToVniMapToP2pSm"; }

  Lanx::IntfId intfId() const noexcept { return intfId_; }
  Brix::Ptr<Vxlan::VtiStatus const> const& vtiStatus() const noexcept { return vtiStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  Mlag::MlagState mlagState() const noexcept { return mlagState_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const { return std::tie(intfId_, vtiStatus_.ptr(), sentVxStatus_, mlagState_); }

  void handleVlanToVniMap(Bridging::ExtendedVlanId vlan);
  void handleVlanToVniMap();
  void cleanup();
  void handleInitialized();

  static void vtiStatusDispatch(Brix::Publisher const* publisher, Brix::Subscriber* subscriber, Brix::FieldId field,
                                void const* key, void const* value) noexcept;

 protected:
  void destructorCleanup() override { cleanup(); }

 private:
  // Withdraws what stood for `vni` on this VTI from both published maps.
  void unpublish(Vxlan::VniExt vni);

  Lanx::IntfId const intfId_;
  Vok::Input<Vxlan::VtiStatus> vtiStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus_;
  Mlag::MlagState const mlagState_;
  VOK_SM_VALUES(shadowVlanToVniMap, Bridging::ExtendedVlanId, Vxlan::VniExtOrNone)
  bool initialized_ = false;
};

VlanToVniMapToP2pSm::Ptr vlanToVniMapToP2pSmFactory(Lanx::IntfId intfId, Brix::Ptr<Vxlan::VtiStatus const> vtiStatus,
                                                    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                                    Mlag::MlagState mlagState);

// Whether a mapping may go to the peer: never one the MLAG peer itself configured, and not a
// statically configured one from a secondary. Anything else, an unknown or empty source too,
// may. The pair is not changed.
bool isMlagShareable(Vxlan::VniSourcePair& pair, Mlag::MlagState state);

}  // namespace MlagVxlan
