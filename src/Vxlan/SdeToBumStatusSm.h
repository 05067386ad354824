// SdeToBumStatusSm: a source directory entry narrowed to the older BUM status form. For each
// VLAN of an initialized source, the flood set of the zero MAC becomes the VTEP list of (zero
// MAC, VLAN): its type translated, its IPv4 VTEP addresses as addresses of the list. Other MACs
// and other address families do not cross. Three levels: SdeToBumStatusSm for the entry, a
// VfsToBumStatusSm per VLAN, a FsToBumStatusSm for the zero MAC's flood set.
#pragma once

#include <tuple>

#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Vxlan/BumStatus.h"
#include "runtime/StateMachine.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

namespace MlagVxlan {

// The zero MAC's flood set of one VLAN, as the VTEP list of the same key.
class FsToBumStatusSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<FsToBumStatusSm>;

  FsToBumStatusSm(Brix::Ptr<L2Rib::FloodSet const> floodSetIn, Brix::Ptr<Vxlan::BumVtepList> bumVtepListOut);
  static void FsToBumStatusSmIs(Ptr& out, Brix::Ptr<L2Rib::FloodSet const> floodSetIn,
                                Brix::Ptr<Vxlan::BumVtepList> bumVtepListOut);

  char const* typeData() const override { return "MlagVxlan::FsToBumStatusSm"; }

  Brix::Ptr<L2Rib::FloodSet const> const& floodSetIn() const noexcept { return floodSetIn_.ptr(); }
  Brix::Ptr<Vxlan::BumVtepList> const& bumVtepListOut() const noexcept { return bumVtepListOut_; }
  Lanx::EthAddr const& macAddr() const noexcept { return macAddr_; }
  Bridging::VlanId vlanId() const noexcept { return vlanId_; }
  auto vokArgs() const { return std::tie(floodSetIn_.ptr(), bumVtepListOut_); }

  void handleFloodSetType();
  void handleDestSet(L2Rib::Dest const& dest);
  void handleInitialized();

  static void floodSetInDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                 void const*) noexcept;

 private:
  Vok::Input<L2Rib::FloodSet> floodSetIn_;
  Brix::Ptr<Vxlan::BumVtepList> const bumVtepListOut_;
  Lanx::EthAddr const macAddr_;
  Bridging::VlanId const vlanId_;
};

// One VLAN flood set: a child for its zero MAC's flood set, if it has one.
class VfsToBumStatusSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<VfsToBumStatusSm>;

  VfsToBumStatusSm(Brix::Ptr<L2Rib::VlanFloodSet const> vlanFloodSetIn, Brix::Ptr<Vxlan::BumStatus> bumStatusOutput);
  static void VfsToBumStatusSmIs(Ptr& out, Brix::Ptr<L2Rib::VlanFloodSet const> vlanFloodSetIn,
                                 Brix::Ptr<Vxlan::BumStatus> bumStatusOutput);

  char const* typeData() const override { return "MlagVxlan::VfsToBumStatusSm"; }

  Brix::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSetIn() const noexcept { return vlanFloodSetIn_.ptr(); }
  Brix::Ptr<Vxlan::BumStatus> const& bumStatusOutput() const noexcept { return bumStatusOutput_; }
  Bridging::VlanId vlanId() const noexcept { return vlanId_; }
  auto vokArgs() const { return std::tie(vlanFloodSetIn_.ptr(), bumStatusOutput_); }

  void handleFloodSet();
  void handleFloodSet(Lanx::EthAddr const& mac);

  FsToBumStatusSm::Ptr fsToBumStatusSmIs(Brix::Ptr<L2Rib::FloodSet const> floodSet,
                                         Brix::Ptr<Vxlan::BumVtepList> bumVtepList) {
    Lanx::EthAddr const mac = floodSet->macAddr();
    return fsToBumStatusSm_.is(mac, std::move(floodSet), std::move(bumVtepList));
  }
  FsToBumStatusSm::Ptr fsToBumStatusSmDel(Lanx::EthAddr const& mac) { return fsToBumStatusSm_.del(mac); }
  FsToBumStatusSm* fsToBumStatusSm(Lanx::EthAddr const& mac) const { return fsToBumStatusSm_(mac); }
  std::size_t fsToBumStatusSmCount() const noexcept { return fsToBumStatusSm_.size(); }

  static void vlanFloodSetInDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                     void const*) noexcept;

 private:
  Vok::Input<L2Rib::VlanFloodSet> vlanFloodSetIn_;
  Brix::Ptr<Vxlan::BumStatus> const bumStatusOutput_;
  Bridging::VlanId const vlanId_;
  Vok::ChildCollection<Lanx::EthAddr, FsToBumStatusSm, Vok::OtherArgs::replace> fsToBumStatusSm_{
      this, "MlagVxlan::VfsToBumStatusSm", "fsToBumStatusSm"};
};

class SdeToBumStatusSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<SdeToBumStatusSm>;

  SdeToBumStatusSm(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput, Brix::Ptr<Vxlan::BumStatus> bumStatusOutput);
  static void SdeToBumStatusSmIs(Ptr& out, Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                 Brix::Ptr<Vxlan::BumStatus> bumStatusOutput);

  char const* typeData() const override { return "MlagVxlan::SdeToBumStatusSm"; }

  Brix::Ptr<L2Rib::SourceDirEntry const> const& sdeInput() const noexcept { return sdeInput_.ptr(); }
  Brix::Ptr<Vxlan::BumStatus> const& bumStatusOutput() const noexcept { return bumStatusOutput_; }
  auto vokArgs() const { return std::tie(sdeInput_.ptr(), bumStatusOutput_); }

  void handleSourceInitialized();
  void handleVlanFloodSet();
  void handleVlanFloodSet(Bridging::VlanId vlanId);

  VfsToBumStatusSm::Ptr vfsToBumStatusSmIs(Brix::Ptr<L2Rib::VlanFloodSet const> vlanFloodSet,
                                           Brix::Ptr<Vxlan::BumStatus> bumStatus) {
    Bridging::VlanId const vlanId = vlanFloodSet->vlanId();
    return vfsToBumStatusSm_.is(vlanId, std::move(vlanFloodSet), std::move(bumStatus));
  }
  VfsToBumStatusSm::Ptr vfsToBumStatusSmDel(Bridging::VlanId vlanId) { return vfsToBumStatusSm_.del(vlanId); }
  void vfsToBumStatusSmDelAll() { vfsToBumStatusSm_.delAll(); }
  VfsToBumStatusSm* vfsToBumStatusSm(Bridging::VlanId vlanId) const { return vfsToBumStatusSm_(vlanId); }
  std::size_t vfsToBumStatusSmCount() const noexcept { return vfsToBumStatusSm_.size(); }

  void doCleanup();

  static void sdeInputDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                               void const*) noexcept;

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  bool sourceInitialized() const noexcept { return sdeInput_ && sdeInput_->sourceInitialized(); }

  Vok::Input<L2Rib::SourceDirEntry> sdeInput_;
  Brix::Ptr<Vxlan::BumStatus> const bumStatusOutput_;
  Vok::ChildCollection<Bridging::VlanId, VfsToBumStatusSm, Vok::OtherArgs::replace> vfsToBumStatusSm_{
      this, "MlagVxlan::SdeToBumStatusSm", "vfsToBumStatusSm"};
};

SdeToBumStatusSm::Ptr sdeToBumStatusSmFactory(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                              Brix::Ptr<Vxlan::BumStatus> bumStatusOutput);

}  // namespace MlagVxlan
