#include "Vxlan/FloodListInputSelectorSm.h"

#include "Vxlan/Trace.h"

namespace MlagVxlan {

FloodListInputSelectorSm::FloodListInputSelectorSm(Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                                                   Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                                   Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                   Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name)
    : vxlanStatus_(this, std::move(vxlanStatus), &vxlanStatusDispatch),
      bumStatusInput_(std::move(bumStatusInput)),
      sdeInput_(std::move(sdeInput)),
      sdeOutput_(std::move(sdeOutput)),
      name_(std::move(name)) {
  handleInitialized();
}

void FloodListInputSelectorSm::FloodListInputSelectorSmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                                                          Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                                          Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                          Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                                                          Brix::String name) {
  Vok::smIs(out, std::move(vxlanStatus), std::move(bumStatusInput), std::move(sdeInput), std::move(sdeOutput),
            std::move(name));
}

FloodListInputSelectorSm::Ptr floodListInputSelectorSmFactory(Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                                                              Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                                              Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                              Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                                                              Brix::String name) {
  FloodListInputSelectorSm::Ptr out;
  FloodListInputSelectorSm::FloodListInputSelectorSmIs(out, std::move(vxlanStatus), std::move(bumStatusInput),
                                                       std::move(sdeInput), std::move(sdeOutput), std::move(name));
  return out;
}

void FloodListInputSelectorSm::vxlanStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber,
                                                   Brix::FieldId field, void const*, void const*) noexcept {
  if (field != Mlag::VxlanStatus::sdeFloodListCapableField) return;
  auto* self = subscriber->ownerAs<FloodListInputSelectorSm>();
  if (self->zombie()) return;
  self->selectInputSource();
}

void FloodListInputSelectorSm::handleInitialized() {
  VXLAN_TRACE(5, "FloodListInputSelectorSm({name})::handleInitialized()", name_);
  initialized_ = true;
  selectInputSource();
  VXLAN_TRACE(5, "FloodListInputSelectorSm({name})::handleInitialized() return", name_);
}

// The old road's child goes completely, output emptied, before the new one makes its first
// run: both write the same output.
void FloodListInputSelectorSm::selectInputSource() {
  bool const flag = vxlanStatus_ && vxlanStatus_->sdeFloodListCapable();
  VXLAN_TRACE(5, "FloodListInputSelectorSm({name})::selectInputSource({flag})", name_, flag);
  if (flag) {
    if (legacyBumStatusInputSm_) {
      legacyBumStatusInputSm_->doCleanup();
      (void)legacyBumStatusInputSmDel();
    }
    sdeInputSmIs(sdeInput_, sdeOutput_, name_);
  } else {
    if (sdeInputSm_) {
      sdeInputSm_->doCleanup();
      (void)sdeInputSmDel();
    }
    legacyBumStatusInputSmIs(bumStatusInput_, sdeOutput_, name_);
  }
  VXLAN_TRACE(5, "FloodListInputSelectorSm({name})::selectInputSource({flag}) return", name_, flag);
}

void FloodListInputSelectorSm::doCleanup() {
  VXLAN_TRACE(5, "FloodListInputSelectorSm({name})::doCleanup()", name_);
  (void)legacyBumStatusInputSmDel();
  (void)sdeInputSmDel();
  if (sdeOutput_) sdeOutput_->vlanFloodSetDelAll();
  VXLAN_TRACE(5, "FloodListInputSelectorSm({name})::doCleanup() return", name_);
}

}  // namespace MlagVxlan
