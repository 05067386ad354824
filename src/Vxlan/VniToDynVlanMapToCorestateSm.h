// VniToDynVlanMapToCorestateSm: the receiving end of the VLAN-to-VNI publication. It applies
// what the peer published in recvVxStatus (the per-VTI vniVtiToDynVlanMap, and the older
// vniToDynVlanMap standing for Vxlan1) to localVxStatus's vniVtiToDynVlanMap, from which the
// switch makes its dynamic VLANs. The per-VTI entry wins where both have one.
#pragma once

#include <tuple>

#include "entities/Mlag/VxlanStatus.h"
#include "runtime/StateMachine.h"
#include "types/Mlag.h"
#include "types/Vxlan.h"

namespace MlagVxlan {

class VniToDynVlanMapToCorestateSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<VniToDynVlanMapToCorestateSm>;

  VniToDynVlanMapToCorestateSm(Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                               Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Mlag::MlagState mlagState);
  static void VniToDynVlanMapToCorestateSmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                             Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Mlag::MlagState mlagState);

  char const* typeData() const override { return "MlagVxlan::VniToDynVlanMapToCorestateSm"; }

  Brix::Ptr<Mlag::VxlanStatus const> const& recvVxStatus() const noexcept { return recvVxStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  Mlag::MlagState mlagState() const noexcept { return mlagState_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const { return std::tie(recvVxStatus_.ptr(), localVxStatus_, mlagState_); }

  void handleVniToDynVlanMap(Vxlan::VniExtOrNone vni);
  void handleVniVtiToDynVlanMap(Vxlan::VniVtiPair const& key);
  void handleVniVtiToDynVlanMap();
  void cleanup();
  void handleInitialized();

  static void recvVxStatusDispatch(Brix::Publisher const* publisher, Brix::Subscriber* subscriber, Brix::FieldId field,
                                   void const* key, void const* value) noexcept;

 protected:
  void destructorCleanup() override { cleanup(); }

 private:
  // The peer's VLAN in either collection; 0 when it has none.
  Bridging::ExtendedVlanId recvVniVti(Vxlan::VniVtiPair const& key) const;
  Bridging::ExtendedVlanId recvVni(Vxlan::VniExtOrNone vni) const;

  Vok::Input<Mlag::VxlanStatus> recvVxStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
  Mlag::MlagState const mlagState_;
  bool initialized_ = false;
};

VniToDynVlanMapToCorestateSm::Ptr vniToDynVlanMapToCorestateSmFactory(Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                                      Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                                                      Mlag::MlagState mlagState);

}  // namespace MlagVxlan
