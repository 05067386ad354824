#include "Vxlan/VxlanBfdStatusSm.h"

#include "Vxlan/Trace.h"

namespace MlagVxlan {

VxlanBfdStatusSm::VxlanBfdStatusSm(Mlag::VtiVtep const& vtiVtep, Brix::Ptr<Mlag::VxlanBfdStatus const> vxlanBfdStatus,
                                   Brix::Ptr<Mlag::VxlanStatus> localVxStatus)
    : vtiVtep_(vtiVtep),
      vxlanBfdStatus_(this, std::move(vxlanBfdStatus), &vxlanBfdStatusDispatch),
      localVxStatus_(std::move(localVxStatus)) {
  handleInitialized();
}

void VxlanBfdStatusSm::VxlanBfdStatusSmIs(Ptr& out, Mlag::VtiVtep const& vtiVtep,
                                          Brix::Ptr<Mlag::VxlanBfdStatus const> vxlanBfdStatus,
                                          Brix::Ptr<Mlag::VxlanStatus> localVxStatus) {
  Vok::smIs(out, vtiVtep, std::move(vxlanBfdStatus), std::move(localVxStatus));
}

void VxlanBfdStatusSm::vxlanBfdStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                              void const*, void const*) noexcept {
  auto* self = subscriber->ownerAs<VxlanBfdStatusSm>();
  if (field != Mlag::VxlanBfdStatus::operStateField || self->zombie()) return;
  self->handleOperState();
}

void VxlanBfdStatusSm::handleInitialized() {
  VXLAN_TRACE(5, "VxlanBfdStatusSm::handleInitialized()");
  initialized_ = true;
  handleOperState();
}

void VxlanBfdStatusSm::handleOperState() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VxlanBfdStatusSm::handleOperState()");
  auto const& in = *vxlanBfdStatus_;
  VXLAN_TRACE(6, " Add/Udp peer Vtep {vtep}, operState: {operState}", in.vtiVtep().vtep(), in.operState());
  localVxStatus_->allVxlanBfdPeerStatusIs(in.vtiVtep())->operStateIs(in.operState());
}

void VxlanBfdStatusSm::doCleanup() {
  initialized_ = false;
  VXLAN_TRACE(5, "VxlanBfdStatusSm::doCleanup()");
  auto const& in = *vxlanBfdStatus_;
  VXLAN_TRACE(6, " Del peer Vtep {vtep}, operState: {operState}", in.vtiVtep().vtep(), in.operState());
  localVxStatus_->allVxlanBfdPeerStatusDel(in.vtiVtep());
}

}  // namespace MlagVxlan
