// BumStatusToSdeSm: the older form of a flood list (a BUM status of VTEP lists per MAC and
// VLAN) turned into source directory form. Each list becomes the flood set of its MAC in the
// VLAN flood set of its VLAN, each VTEP address of the list a VXLAN destination of that flood set
// in the canonical form. Everything a list holds crosses; emptied levels of the output go as
// they empty, so the output never holds an empty flood set or VLAN that no list stands for.
#pragma once

#include <tuple>

#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Vxlan/BumStatus.h"
#include "runtime/StateMachine.h"
#include "runtime/String.h"
#include "types/L2Rib.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

namespace MlagVxlan {

class BumStatusToSdeSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<BumStatusToSdeSm>;

  // One per VTEP list of the input.
  class VokBumVtepListInput : public Vok::Reactor<BumStatusToSdeSm, Vxlan::BumVtepList> {
   public:
    VokBumVtepListInput(Brix::Ptr<Vxlan::BumVtepList const> const& bumVtepListInput, BumStatusToSdeSm* owner);
    static Vxlan::MacVlanPair keyOf(Vxlan::BumVtepList const& l) { return l.macVlanPair(); }
    char const* typeData() const override { return "MlagVxlan::BumStatusToSdeSm::VokBumVtepListInput"; }
    void onAttribute(Brix::FieldId field, void const* key) override;

    Vxlan::MacVlanPair const& macVlanPair() const noexcept { return macVlanPair_; }
    void handleBumVtepIpListType();
    void handleRemoteVtepAddr(Lanx::IpAddr addr);
    void handleRemoteVtepAddr6(Lanx::Ip6Addr const& addr6);
    void handleInitialized();

   protected:
    // Re-pointed at another list of the same key: its type is taken over.
    void onNotifierBound() override { handleBumVtepIpListType(); }

   private:
    template <class Family>
    void handleRemoteVtepAddrOf(typename Family::Addr const& addr);
    // The flood set of this list's key in the output, made if missing.
    Brix::Ptr<L2Rib::FloodSet> floodSetOutput();

    Vxlan::MacVlanPair const macVlanPair_;
  };

  BumStatusToSdeSm(Brix::Ptr<Vxlan::BumStatus const> bumStatusInput, Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                   Brix::String name);
  static void BumStatusToSdeSmIs(Ptr& out, Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                 Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name);

  char const* typeData() const override { return "MlagVxlan::BumStatusToSdeSm"; }

  Brix::Ptr<Vxlan::BumStatus const> const& bumStatusInput() const noexcept { return bumStatusInput_.ptr(); }
  Brix::Ptr<L2Rib::SourceDirEntry> const& sdeOutput() const noexcept { return sdeOutput_; }
  Brix::String const& name() const noexcept { return name_; }
  auto vokArgs() const { return std::tie(bumStatusInput_.ptr(), sdeOutput_, name_); }

  void handleBumVtepList();
  void handleBumVtepList(Vxlan::MacVlanPair const& key);

  Brix::Ptr<VokBumVtepListInput> bumVtepListInputIs(Brix::Ptr<Vxlan::BumVtepList const> const& list) {
    return bumVtepListInput_.is(list);
  }
  Brix::Ptr<Vxlan::BumVtepList const> bumVtepListInputDel(Vxlan::MacVlanPair const& key) {
    return bumVtepListInput_.del(key);
  }
  VokBumVtepListInput* bumVtepListInput(Vxlan::MacVlanPair const& key) const { return bumVtepListInput_(key); }
  std::size_t bumVtepListInputCount() const noexcept { return bumVtepListInput_.size(); }

  void doCleanup();

  static void bumStatusInputDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                     void const*) noexcept;

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  bool hasList(Vxlan::MacVlanPair const& key) const { return bumStatusInput_ && bumStatusInput_->bumVtepListHas(key); }

  Vok::Input<Vxlan::BumStatus> bumStatusInput_;
  Brix::Ptr<L2Rib::SourceDirEntry> const sdeOutput_;
  Brix::String const name_;
  Vok::InputCollection<Vxlan::MacVlanPair, VokBumVtepListInput> bumVtepListInput_{this, "MlagVxlan::BumStatusToSdeSm",
                                                                                  "bumVtepListInput"};
};

BumStatusToSdeSm::Ptr bumStatusToSdeSmFactory(Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                              Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name);

}  // namespace MlagVxlan
