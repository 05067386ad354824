// VlanConfigConfigSourceSm: watches who configured one VLAN, for the secondary when the VLANs
// come from the bridging configuration's entities. Each change of the source goes to the
// secondary's handleVlanSource; the child's end returns its VLAN to the shared set.
#pragma once

#include <tuple>

#include "entities/Bridging/Config.h"
#include "runtime/StateMachine.h"
#include "types/Bridging.h"

namespace MlagVxlan {

class SecondarySm;

class VlanConfigConfigSourceSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<VlanConfigConfigSourceSm>;

  VlanConfigConfigSourceSm(Brix::Ptr<Bridging::VlanConfig const> vlanConfig, SecondarySm* secondarySm);
  static void VlanConfigConfigSourceSmIs(Ptr& out, Brix::Ptr<Bridging::VlanConfig const> vlanConfig,
                                         SecondarySm* secondarySm);

  char const* typeData() const override { return "MlagVxlan::VlanConfigConfigSourceSm"; }

  Brix::Ptr<Bridging::VlanConfig const> const& vlanConfig() const noexcept { return vlanConfig_.ptr(); }
  SecondarySm* secondarySm() const noexcept { return secondarySm_; }
  Bridging::VlanId vlanId() const noexcept { return vlanId_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const { return std::tie(vlanConfig_.ptr(), secondarySm_); }

  void handleVlanSource();
  // A child made before its owner's first run stays asleep for its life.
  void handleInitialized();
  void cleanup();

  static void vlanConfigDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                 void const*) noexcept;

 protected:
  void destructorCleanup() override { cleanup(); }

 private:
  Vok::Input<Bridging::VlanConfig> vlanConfig_;
  SecondarySm* const secondarySm_;
  Bridging::VlanId const vlanId_;
  bool initialized_ = false;
};

VlanConfigConfigSourceSm::Ptr vlanConfigConfigSourceSmFactory(Brix::Ptr<Bridging::VlanConfig const> vlanConfig,
                                                              SecondarySm* secondarySm);

}  // namespace MlagVxlan
