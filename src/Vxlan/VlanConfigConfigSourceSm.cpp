#include "Vxlan/VlanConfigConfigSourceSm.h"

#include "Vxlan/SecondarySm.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

VlanConfigConfigSourceSm::VlanConfigConfigSourceSm(Brix::Ptr<Bridging::VlanConfig const> vlanConfig,
                                                   SecondarySm* secondarySm)
    : vlanConfig_(this, std::move(vlanConfig), &vlanConfigDispatch),
      secondarySm_(secondarySm),
      vlanId_(vlanConfig_ ? vlanConfig_->vlanId() : Bridging::VlanId(1)) {
  handleInitialized();
}

void VlanConfigConfigSourceSm::VlanConfigConfigSourceSmIs(Ptr& out, Brix::Ptr<Bridging::VlanConfig const> vlanConfig,
                                                          SecondarySm* secondarySm) {
  Vok::smIs(out, std::move(vlanConfig), secondarySm);
}

VlanConfigConfigSourceSm::Ptr vlanConfigConfigSourceSmFactory(Brix::Ptr<Bridging::VlanConfig const> vlanConfig,
                                                              SecondarySm* secondarySm) {
  VlanConfigConfigSourceSm::Ptr out;
  VlanConfigConfigSourceSm::VlanConfigConfigSourceSmIs(out, std::move(vlanConfig), secondarySm);
  return out;
}

void VlanConfigConfigSourceSm::vlanConfigDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber,
                                                  Brix::FieldId field, void const*, void const*) noexcept {
  auto* self = subscriber->ownerAs<VlanConfigConfigSourceSm>();
  if (field != Bridging::VlanConfig::configSourceField || self->zombie()) return;
  self->handleVlanSource();
}

void VlanConfigConfigSourceSm::handleInitialized() {
  if (!secondarySm_->initialized()) return;
  VXLAN_TRACE(5, "SecondarySm::VokVlanConfig({vlanId})::handleInitialized()", vlanId_);
  initialized_ = true;
  handleVlanSource();
  VXLAN_TRACE(5, "SecondarySm::VokVlanConfig({vlanId})::handleInitialized() return", vlanId_);
}

void VlanConfigConfigSourceSm::handleVlanSource() {
  if (initialized_) secondarySm_->handleVlanSource(vlanId_, vlanConfig_->configSource());
}

// No guard of its own: the owner's decides.
void VlanConfigConfigSourceSm::cleanup() { secondarySm_->vlanConfigSourceSmCleanup(vlanId_); }

}  // namespace MlagVxlan
