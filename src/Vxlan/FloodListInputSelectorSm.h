// FloodListInputSelectorSm: fills one source directory entry (sdeOutput) by one of two roads,
// as the status's sdeFloodListCapable says: true replicates the source directory input
// (SourceDirEntryP2pSm), false converts the BUM status input (BumStatusToSdeSm). Exactly one of
// the two children lives. Both write the same output, so a change of road cleans up what the
// old child wrote before the new child makes its first run.
#pragma once

#include <tuple>

#include "Vxlan/BumStatusToSdeSm.h"
#include "Vxlan/SourceDirEntryP2pSm.h"
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/BumStatus.h"
#include "runtime/StateMachine.h"
#include "runtime/String.h"

namespace MlagVxlan {

class FloodListInputSelectorSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<FloodListInputSelectorSm>;

  FloodListInputSelectorSm(Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                           Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                           Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput, Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                           Brix::String name);
  static void FloodListInputSelectorSmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                                         Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                         Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                         Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name);

  char const* typeData() const override { return "MlagVxlan::FloodListInputSelectorSm"; }

  Brix::Ptr<Mlag::VxlanStatus const> const& vxlanStatus() const noexcept { return vxlanStatus_.ptr(); }
  Brix::Ptr<Vxlan::BumStatus const> const& bumStatusInput() const noexcept { return bumStatusInput_; }
  Brix::Ptr<L2Rib::SourceDirEntry const> const& sdeInput() const noexcept { return sdeInput_; }
  Brix::Ptr<L2Rib::SourceDirEntry> const& sdeOutput() const noexcept { return sdeOutput_; }
  Brix::String const& name() const noexcept { return name_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const { return std::tie(vxlanStatus_.ptr(), bumStatusInput_, sdeInput_, sdeOutput_, name_); }

  BumStatusToSdeSm::Ptr const& legacyBumStatusInputSm() const noexcept { return legacyBumStatusInputSm_.ptr(); }
  BumStatusToSdeSm::Ptr legacyBumStatusInputSmIs(Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                                 Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name) {
    return legacyBumStatusInputSm_.is(std::move(bumStatusInput), std::move(sdeOutput), std::move(name));
  }
  BumStatusToSdeSm::Ptr legacyBumStatusInputSmDel() { return legacyBumStatusInputSm_.del(); }

  SourceDirEntryP2pSm::Ptr const& sdeInputSm() const noexcept { return sdeInputSm_.ptr(); }
  SourceDirEntryP2pSm::Ptr sdeInputSmIs(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                        Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name) {
    return sdeInputSm_.is(std::move(sdeInput), std::move(sdeOutput), std::move(name));
  }
  SourceDirEntryP2pSm::Ptr sdeInputSmDel() { return sdeInputSm_.del(); }

  void selectInputSource();
  void doCleanup();
  void handleInitialized();

  static void vxlanStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                  void const*) noexcept;

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  Vok::Input<Mlag::VxlanStatus> vxlanStatus_;
  Brix::Ptr<Vxlan::BumStatus const> const bumStatusInput_;
  Brix::Ptr<L2Rib::SourceDirEntry const> const sdeInput_;
  Brix::Ptr<L2Rib::SourceDirEntry> const sdeOutput_;
  Brix::String const name_;
  Vok::Child<BumStatusToSdeSm> legacyBumStatusInputSm_{this};
  Vok::Child<SourceDirEntryP2pSm> sdeInputSm_{this};
  bool initialized_ = false;
};

FloodListInputSelectorSm::Ptr floodListInputSelectorSmFactory(Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                                                              Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                                              Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                              Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                                                              Brix::String name);

}  // namespace MlagVxlan
