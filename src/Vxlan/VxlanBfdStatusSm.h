// VxlanBfdStatusSm: copies the BFD state of one VTEP of one VTI, as the primary publishes it in
// recvVxStatus.allVxlanBfdPeerStatus, into localVxStatus. The collection holds entities whose
// state changes without the collection changing, so each key has a state machine of its own
// that watches the entity. Its owner calls doCleanup before it lets the child go.
#pragma once

#include <tuple>

#include "entities/Mlag/VxlanStatus.h"
#include "runtime/StateMachine.h"
#include "types/Mlag.h"

namespace MlagVxlan {

class VxlanBfdStatusSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<VxlanBfdStatusSm>;

  VxlanBfdStatusSm(Mlag::VtiVtep const& vtiVtep, Brix::Ptr<Mlag::VxlanBfdStatus const> vxlanBfdStatus,
                   Brix::Ptr<Mlag::VxlanStatus> localVxStatus);
  static void VxlanBfdStatusSmIs(Ptr& out, Mlag::VtiVtep const& vtiVtep,
                                 Brix::Ptr<Mlag::VxlanBfdStatus const> vxlanBfdStatus,
                                 Brix::Ptr<Mlag::VxlanStatus> localVxStatus);

  char const* typeData() const override { return "MlagVxlan::VxlanBfdStatusSm"; }

  Mlag::VtiVtep const& vtiVtep() const noexcept { return vtiVtep_; }
  Brix::Ptr<Mlag::VxlanBfdStatus const> const& vxlanBfdStatus() const noexcept { return vxlanBfdStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const { return std::tie(vtiVtep_, vxlanBfdStatus_.ptr(), localVxStatus_); }

  void handleOperState();
  void handleInitialized();
  // Unguarded: it withdraws the key whatever `initialized` says.
  void doCleanup();

  static void vxlanBfdStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                     void const*) noexcept;

 private:
  Mlag::VtiVtep const vtiVtep_;
  Vok::Input<Mlag::VxlanBfdStatus> vxlanBfdStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
  bool initialized_ = false;
};

}  // namespace MlagVxlan
