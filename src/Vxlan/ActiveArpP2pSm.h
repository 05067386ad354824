// ActiveArpP2pSm: copies one active ARP table (activeArpIn) to another (activeArpOut) through a
// filter made of the configuration (activeArpConfig, l2VpnConfig) and of what the far end of the
// copy can do and already holds (destState, rxDestState, destVxStatus). The container holds two:
// one towards the peer, one from it; nothing here knows which.
//
// The logic lives in one nested state machine per VTI, which binds its reactors on its first
// run and runs that first run again on every change of configuration or capability: enabled,
// it resynchronises the whole output; disabled, it empties it.
#pragma once

#include <tuple>
#include <utility>

#include "entities/Mlag/VxlanStatus.h"
#include "entities/Routing/L2VpnConfig.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/Vxlan/VtiStatus.h"
#include "runtime/StateMachine.h"
#include "runtime/String.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

// The constructor's arguments in declared order, written once for the constructor, the factory
// and the container's two mutators; and the same arguments passed on.
#define MLAGVXLAN_ACTIVE_ARP_ARGS                                                                                     \
  Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir, Brix::Ptr<Routing::L2Vpn::Config const> l2VpnConfig,             \
      Brix::Ptr<Vxlan::ActiveArpIpTable const> activeArpConfig, Brix::Ptr<Vxlan::ActiveArpIpTable const> activeArpIn, \
      Brix::Ptr<Vxlan::ActiveArpIpTable> activeArpOut, Brix::Ptr<Vxlan::ActiveArpIpTable const> destState,            \
      Brix::Ptr<Vxlan::ActiveArpIpTable const> rxDestState, Brix::Ptr<Mlag::VxlanStatus const> destVxStatus,          \
      Brix::String name
#define MLAGVXLAN_ACTIVE_ARP_PASS                                                                      \
  std::move(vtiStatusDir), std::move(l2VpnConfig), std::move(activeArpConfig), std::move(activeArpIn), \
      std::move(activeArpOut), std::move(destState), std::move(rxDestState), std::move(destVxStatus), std::move(name)

namespace MlagVxlan {

class ActiveArpP2pSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<ActiveArpP2pSm>;

  class NestedSm_VtiStatus : public Vok::Reactor<ActiveArpP2pSm, Vxlan::VtiStatus> {
   public:
    // The reactors on the copy's inputs. None runs a handler when it is made; the parent's
    // pointers never change, so none is ever bound to another notifier.
    template <class In, class Derived>
    class NestedReactor : public Vok::Reactor<NestedSm_VtiStatus, In> {
     public:
      NestedReactor(Brix::Ptr<In const> const& input, NestedSm_VtiStatus* owner)
          : Vok::Reactor<NestedSm_VtiStatus, In>(input, owner) {}
      void onAttribute(Brix::FieldId field, void const* key) override {
        if (this->zombie() || !this->owner()) return;
        static_cast<Derived*>(this)->react(*this->owner(), field, key);
      }
    };
    class VokL2VpnConfig : public NestedReactor<Routing::L2Vpn::Config, VokL2VpnConfig> {
     public:
      using NestedReactor::NestedReactor;
      char const* typeData() const override { return "MlagVxlan::ActiveArpP2pSm::NestedSm_VtiStatus::VokL2VpnConfig"; }
      static void react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const* key);
    };
    class VokActiveArpConfig : public NestedReactor<Vxlan::ActiveArpIpTable, VokActiveArpConfig> {
     public:
      using NestedReactor::NestedReactor;
      char const* typeData() const override {
        return "MlagVxlan::ActiveArpP2pSm::NestedSm_VtiStatus::VokActiveArpConfig";
      }
      static void react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const* key);
    };
    class VokActiveArpIn : public NestedReactor<Vxlan::ActiveArpIpTable, VokActiveArpIn> {
     public:
      using NestedReactor::NestedReactor;
      char const* typeData() const override { return "MlagVxlan::ActiveArpP2pSm::NestedSm_VtiStatus::VokActiveArpIn"; }
      static void react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const* key);
    };
    class VokDestState : public NestedReactor<Vxlan::ActiveArpIpTable, VokDestState> {
     public:
      using NestedReactor::NestedReactor;
      char const* typeData() const override { return "MlagVxlan::ActiveArpP2pSm::NestedSm_VtiStatus::VokDestState"; }
      static void react(NestedSm_VtiStatus& sm, Brix::FieldId field, void const* key);
    };

    // Fully working on return: the constructor runs handleInitialized.
    NestedSm_VtiStatus(Brix::Ptr<Vxlan::VtiStatus const> const& vtiStatus, ActiveArpP2pSm* owner);
    static Lanx::IntfId keyOf(Vxlan::VtiStatus const& s) { return s.intfId(); }
    char const* typeData() const override { return "MlagVxlan::ActiveArpP2pSm::NestedSm_VtiStatus"; }

    void handleInitialized();
    void doCleanup();
    void handleArpSelectiveInstall();
    void handleArpL2LearningCapable();
    void handleRemoteArp(Vxlan::VlanIpPair const& key);
    void handleRemoteArp();
    void handleLocalArp(Vxlan::VlanIpPair const& key);
    void handleLocalArp();
    void handleLocalIpMac(Vxlan::VlanIpPair const& key);
    void handleLocalIpMac();
    void handleValidSviList(Bridging::VlanIdOrNone vlan, Lanx::AddressFamily af);

    VokL2VpnConfig* l2VpnConfig() const noexcept { return l2VpnConfig_.get(); }
    void l2VpnConfigIs(Brix::Ptr<Routing::L2Vpn::Config const> const& p) { l2VpnConfig_.is(p); }
    void l2VpnConfigDel() { l2VpnConfig_.del(); }
    VokActiveArpConfig* activeArpConfig() const noexcept { return activeArpConfig_.get(); }
    void activeArpConfigIs(Brix::Ptr<Vxlan::ActiveArpIpTable const> const& p) { activeArpConfig_.is(p); }
    void activeArpConfigDel() { activeArpConfig_.del(); }
    VokActiveArpIn* activeArpIn() const noexcept { return activeArpIn_.get(); }
    void activeArpInIs(Brix::Ptr<Vxlan::ActiveArpIpTable const> const& p) { activeArpIn_.is(p); }
    void activeArpInDel() { activeArpIn_.del(); }
    Brix::Ptr<Vxlan::ActiveArpIpTable> const& activeArpOut() const noexcept { return activeArpOut_; }
    VokDestState* destState() const noexcept { return destState_.get(); }
    void destStateIs(Brix::Ptr<Vxlan::ActiveArpIpTable const> const& p) { destState_.is(p); }
    void destStateDel() { destState_.del(); }
    Brix::Ptr<Vxlan::ActiveArpIpTable const> const& rxDestState() const noexcept { return rxDestState_; }
    Brix::Ptr<Mlag::VxlanStatus const> const& destVxStatus() const noexcept { return destVxStatus_; }
    bool initialized() const noexcept { return initialized_; }

   protected:
    // Leaving (the VTI went, or the parent goes): the output is emptied before the reactors go.
    void zombieCleanup() override { doCleanup(); }

   private:
    // What the reactors are bound to; an unbound reactor gives null.
    Vxlan::ActiveArpIpTable const* in() const noexcept { return activeArpIn_ ? activeArpIn_->input() : nullptr; }
    Brix::Ptr<Vxlan::ActiveArpIpTable const> config() const noexcept {
      return activeArpConfig_ ? activeArpConfig_->inputPtr() : nullptr;
    }
    Brix::Ptr<Routing::L2Vpn::Config const> vpnConfig() const noexcept {
      return l2VpnConfig_ ? l2VpnConfig_->inputPtr() : nullptr;
    }
    bool destIsL2Capable() const noexcept { return destState_ && destState_->input()->l2LearningCapable(); }
    bool selected(Vxlan::VlanIpPair const& key) const;
    bool l2Installed(Vxlan::VlanIpPair const& key) const;
    bool l2InstalledAnyVlan(Vxlan::VlanIpPair const& key) const;
    // An entry of the output's localIpMac with a real MAC that L2 learning still accepts.
    bool inUse(Vxlan::VlanIpPair const& key) const;
    void handleLocalIpMacOf(Vxlan::VlanIpPair const& key, Lanx::EthAddr const* inMac);
    // Steps shared by several handlers; `Handler` names the one whose trace they write, so each
    // handler's message is its own statement.
    template <class Handler>
    void deleteLocalIpMac(Vxlan::VlanIpPair const& key);
    template <class Handler>
    void deleteLocalIp(Vxlan::VlanIpPair const& key);
    // The step shared by both forms of handleLocalArp: the localIpMac entry of a key that is
    // not wanted, unless it is in use.
    template <class Handler>
    void dropLocalIpMac(Vxlan::VlanIpPair const& key);

    Brix::String const intf_;  // the VTI's short name, as every message names it
    Vok::ReactorPtr<VokL2VpnConfig> l2VpnConfig_{this};
    Vok::ReactorPtr<VokActiveArpConfig> activeArpConfig_{this};
    Vok::ReactorPtr<VokActiveArpIn> activeArpIn_{this};
    Brix::Ptr<Vxlan::ActiveArpIpTable> activeArpOut_;
    Vok::ReactorPtr<VokDestState> destState_{this};
    Brix::Ptr<Vxlan::ActiveArpIpTable const> rxDestState_;
    Brix::Ptr<Mlag::VxlanStatus const> destVxStatus_;
    bool initialized_ = false;
  };

  explicit ActiveArpP2pSm(MLAGVXLAN_ACTIVE_ARP_ARGS);
  static void ActiveArpP2pSmIs(Ptr& out, MLAGVXLAN_ACTIVE_ARP_ARGS);

  char const* typeData() const override { return "MlagVxlan::ActiveArpP2pSm"; }

  Brix::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const noexcept { return vtiStatusDir_.ptr(); }
  Brix::Ptr<Routing::L2Vpn::Config const> const& l2VpnConfig() const noexcept { return l2VpnConfig_; }
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const& activeArpConfig() const noexcept { return activeArpConfig_; }
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const& activeArpIn() const noexcept { return activeArpIn_; }
  Brix::Ptr<Vxlan::ActiveArpIpTable> const& activeArpOut() const noexcept { return activeArpOut_; }
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const& destState() const noexcept { return destState_; }
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const& rxDestState() const noexcept { return rxDestState_; }
  Brix::Ptr<Mlag::VxlanStatus const> const& destVxStatus() const noexcept { return destVxStatus_; }
  Brix::String const& name() const noexcept { return name_; }
  auto vokArgs() const {
    return std::tie(vtiStatusDir_.ptr(), l2VpnConfig_, activeArpConfig_, activeArpIn_, activeArpOut_, destState_,
                    rxDestState_, destVxStatus_, name_);
  }

  Brix::Ptr<NestedSm_VtiStatus> vtiStatusIs(Brix::Ptr<Vxlan::VtiStatus const> const& status) {
    return vtiStatus_.is(status);
  }
  Brix::Ptr<Vxlan::VtiStatus const> vtiStatusDel(Lanx::IntfId intfId) { return vtiStatus_.del(intfId); }
  void vtiStatusDelAll() { vtiStatus_.delAll(); }
  NestedSm_VtiStatus* vtiStatus(Lanx::IntfId intfId) const { return vtiStatus_(intfId); }
  std::size_t vtiStatusCount() const noexcept { return vtiStatus_.size(); }

  static void vtiStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                   void const*) noexcept;

 private:
  Vok::Input<Vxlan::VtiStatusDir> vtiStatusDir_;
  Brix::Ptr<Routing::L2Vpn::Config const> const l2VpnConfig_;
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const activeArpConfig_;
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const activeArpIn_;
  Brix::Ptr<Vxlan::ActiveArpIpTable> const activeArpOut_;
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const destState_;
  Brix::Ptr<Vxlan::ActiveArpIpTable const> const rxDestState_;
  Brix::Ptr<Mlag::VxlanStatus const> const destVxStatus_;
  Brix::String const name_;
  Vok::InputCollection<Lanx::IntfId, NestedSm_VtiStatus> vtiStatus_{this, "MlagVxlan::ActiveArpP2pSm", "vtiStatus"};
};

ActiveArpP2pSm::Ptr activeArpP2pSmFactory(MLAGVXLAN_ACTIVE_ARP_ARGS);

}  // namespace MlagVxlan
