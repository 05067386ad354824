// SourceDirEntryP2pSm: keeps one source directory entry (sdeOutput) an exact, live copy of
// another (sdeInput): VLAN flood sets, the flood sets of each MAC within them, and each flood
// set's type and destinations. Three levels of input, three levels of state machine: the entry
// here, a VokVlanFloodSetInput per VLAN, a VokFloodSetInput per MAC. Each level creates the
// output entry of the level below before it makes that level's reactor, and resynchronises its
// own level (removing what the input lacks) when it is made.
#pragma once

#include <tuple>

#include "entities/L2Rib/SourceDirEntry.h"
#include "runtime/StateMachine.h"
#include "runtime/String.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/Lanx.h"

namespace MlagVxlan {

class SourceDirEntryP2pSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<SourceDirEntryP2pSm>;

  // One per VLAN flood set of the input.
  class VokVlanFloodSetInput : public Vok::Reactor<SourceDirEntryP2pSm, L2Rib::VlanFloodSet> {
   public:
    // One per MAC flood set of the VLAN.
    class VokFloodSetInput : public Vok::Reactor<VokVlanFloodSetInput, L2Rib::FloodSet> {
     public:
      VokFloodSetInput(Brix::Ptr<L2Rib::FloodSet const> const& floodSetInput, VokVlanFloodSetInput* owner);
      static Lanx::EthAddr keyOf(L2Rib::FloodSet const& f) { return f.macAddr(); }
      char const* typeData() const override {
        return "MlagVxlan::SourceDirEntryP2pSm::VokVlanFloodSetInput::VokFloodSetInput";
      }
      void onAttribute(Brix::FieldId field, void const* key) override;

      Lanx::EthAddr const& macAddr() const noexcept { return macAddr_; }
      Brix::Ptr<L2Rib::FloodSet> const& floodSetOutput() const noexcept { return floodSetOutput_; }
      void handleDest();
      void handleDest(L2Rib::Dest const& dest);
      void vok_handleFloodSetInput_floodSetType();

     protected:
      // Re-pointed at another flood set of the same MAC: its type is taken over.
      void onNotifierBound() override { vok_handleFloodSetInput_floodSetType(); }

     private:
      Lanx::EthAddr const macAddr_;
      Brix::Ptr<L2Rib::FloodSet> floodSetOutput_;
    };

    VokVlanFloodSetInput(Brix::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSetInput, SourceDirEntryP2pSm* owner);
    static Bridging::VlanId keyOf(L2Rib::VlanFloodSet const& v) { return v.vlanId(); }
    char const* typeData() const override { return "MlagVxlan::SourceDirEntryP2pSm::VokVlanFloodSetInput"; }
    void onAttribute(Brix::FieldId field, void const* key) override;

    Bridging::VlanId vlanId() const noexcept { return vlanId_; }
    Brix::Ptr<L2Rib::VlanFloodSet> const& vlanFloodSetOutput() const noexcept { return vlanFloodSetOutput_; }
    void handleFloodSet();
    void handleFloodSet(Lanx::EthAddr const& mac);

    Brix::Ptr<VokFloodSetInput> floodSetInputIs(Brix::Ptr<L2Rib::FloodSet const> const& floodSet) {
      return floodSetInput_.is(floodSet);
    }
    Brix::Ptr<L2Rib::FloodSet const> floodSetInputDel(Lanx::EthAddr const& mac) { return floodSetInput_.del(mac); }
    VokFloodSetInput* floodSetInput(Lanx::EthAddr const& mac) const { return floodSetInput_(mac); }
    std::size_t floodSetInputCount() const noexcept { return floodSetInput_.size(); }

   private:
    Bridging::VlanId const vlanId_;
    Brix::Ptr<L2Rib::VlanFloodSet> vlanFloodSetOutput_;
    Vok::InputCollection<Lanx::EthAddr, VokFloodSetInput> floodSetInput_{
        this, "MlagVxlan::SourceDirEntryP2pSm::VokVlanFloodSetInput", "floodSetInput"};
  };

  SourceDirEntryP2pSm(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput, Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                      Brix::String name);
  static void SourceDirEntryP2pSmIs(Ptr& out, Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                    Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name);

  char const* typeData() const override { return "MlagVxlan::SourceDirEntryP2pSm"; }

  Brix::Ptr<L2Rib::SourceDirEntry const> const& sdeInput() const noexcept { return sdeInput_.ptr(); }
  Brix::Ptr<L2Rib::SourceDirEntry> const& sdeOutput() const noexcept { return sdeOutput_; }
  Brix::String const& name() const noexcept { return name_; }
  auto vokArgs() const { return std::tie(sdeInput_.ptr(), sdeOutput_, name_); }

  Brix::Ptr<VokVlanFloodSetInput> vlanFloodSetInputIs(Brix::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSet) {
    return vlanFloodSetInput_.is(vlanFloodSet);
  }
  Brix::Ptr<L2Rib::VlanFloodSet const> vlanFloodSetInputDel(Bridging::VlanId vlanId) {
    return vlanFloodSetInput_.del(vlanId);
  }
  VokVlanFloodSetInput* vlanFloodSetInput(Bridging::VlanId vlanId) const { return vlanFloodSetInput_(vlanId); }
  std::size_t vlanFloodSetInputCount() const noexcept { return vlanFloodSetInput_.size(); }

  void doCleanup();

  static void sdeInputDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                               void const*) noexcept;

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  // The entry step: the output's VLAN entry, then the VLAN's reactor.
  void handleVlanFloodSetInput(Bridging::VlanId vlanId);

  Vok::Input<L2Rib::SourceDirEntry> sdeInput_;
  Brix::Ptr<L2Rib::SourceDirEntry> const sdeOutput_;
  Brix::String const name_;
  Vok::InputCollection<Bridging::VlanId, VokVlanFloodSetInput> vlanFloodSetInput_{
      this, "MlagVxlan::SourceDirEntryP2pSm", "vlanFloodSetInput"};
};

SourceDirEntryP2pSm::Ptr sourceDirEntryP2pSmFactory(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                    Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name);

}  // namespace MlagVxlan
