// PrimarySm: the role state machine of the MLAG primary. From the switch's own inputs it fills
// sentVxStatus, which the transport carries to the peer; it owns the VLAN-to-VNI exchange of
// this side (VlanToVniMapSm, made at its first run), publishes the ARP table of each configured
// VRF (one VrfConfigSm per VRF) and, when the role ends, leaves both status objects clean for the
// next role.
#pragma once

#include <string_view>
#include <tuple>

#include "Vxlan/BfdPeerStatusSm.h"
#include "Vxlan/RoleCommon.h"
#include "Vxlan/VlanToVniMapSm.h"
#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/StateMachine.h"
#include "types/Arp.h"
#include "types/L3.h"

namespace MlagVxlan {

class PrimarySm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<PrimarySm>;

  // Publishes the ARP table of one configured VRF to the peer, in the form the peer takes: by
  // VRF (IPv4 only) into sentVxStatus.arpStatus, or with VLAN (IPv4 and IPv6) into
  // sentVxStatus.arpStatusWithVlan, as the peer's flag peerArpByVlanIpCapable says.
  class VrfConfigSm : public Vok::Reactor<PrimarySm, Arp::InputConfigVrf> {
   public:
    using Ptr = Brix::Ptr<VrfConfigSm>;
    static char const* vokRecvVxStatusTypeName() noexcept {
      return "MlagVxlan::PrimarySm::VrfConfigSm::VokRecvVxStatus";
    }

    void handlePeerArpByVlanIpCapable();
    using VokRecvVxStatus = VokPeerArpCapable<VrfConfigSm, &VrfConfigSm::handlePeerArpByVlanIpCapable>;

    VrfConfigSm(Brix::Ptr<Arp::InputConfigVrf const> const& vrf, PrimarySm* primarySm);
    static L3::VrfName keyOf(Arp::InputConfigVrf const& vrf) { return vrf.name(); }
    char const* typeData() const override { return "MlagVxlan::PrimarySm::VrfConfigSm"; }
    void onAttribute(Brix::FieldId field, void const* key) override;

    PrimarySm* primarySm() const noexcept { return owner(); }
    Brix::Ptr<Arp::InputConfigVrf const> vrf() const noexcept { return inputPtr(); }
    L3::VrfName const& name() const noexcept { return name_; }
    bool peerArpByVlanIpCapable() const noexcept { return peerArpByVlanIpCapable_; }
    bool initialized() const noexcept { return initialized_; }

    void recvVxStatusIs(Brix::Ptr<Mlag::VxlanStatus const> const& status) {
      VokRecvVxStatus::bind(recvVxStatus_, status);
    }
    void recvVxStatusDel() { recvVxStatus_.del(); }
    VokRecvVxStatus* recvVxStatus() const noexcept { return recvVxStatus_.get(); }

    void handleIpv4VrfArpInput();
    void handleIpv4VrfArpInput(Arp::InputConfigKey const& key);
    void handleVrfArpInputForVlanIpCapablePeer();
    void handleVrfArpInputForVlanIpCapablePeer(Arp::InputConfigKey const& key);
    void handleInitialized();
    void cleanup();
    void vok_handleVrf_ipv4(Arp::InputConfigKey const& key);
    void vok_handleVrf_ipv6(Arp::InputConfigKey const& key);

   protected:
    void zombieCleanup() override { cleanup(); }

   private:
    // The last row of a form went: so does the VRF's table of that form.
    void delIpv4VrfFromSent();
    void delVlanIpVrfFromSent();

    L3::VrfName const name_;
    Vok::ReactorPtr<VokRecvVxStatus> recvVxStatus_{this};
    bool peerArpByVlanIpCapable_ = false;
    bool initialized_ = false;
  };

  // Publishes the BFD peers that one entry of the controller's VTEP status reports: into
  // sentVxStatus.mlagBfdPeerStatus for an MLAG entry, into bfdPeerStatus for any other. A record
  // equal to the default counts as absent.
  //
  // The first run removes, before it publishes its own, the keys of its kind that no entry of
  // that kind in the directory reports, and only those: several entries of one kind share the
  // collection, and a later entry's first run must not take away what an earlier one published.
  // After the first runs each collection holds what the entries of its kind hold. The removal of
  // an entry still empties its kind's collection whole.
  class NestedSm_VtepStatus : public Vok::Reactor<PrimarySm, VxlanController::VtepStatusV2> {
   public:
    using Ptr = Brix::Ptr<NestedSm_VtepStatus>;

    NestedSm_VtepStatus(Brix::Ptr<VxlanController::VtepStatusV2 const> const& vtepStatus, PrimarySm* primarySm);
    static Brix::String keyOf(VxlanController::VtepStatusV2 const& s) { return s.name(); }
    // An MLAG entry's name begins with "Vxlan" and ends with "-mlag".
    static bool isMlagEntryName(std::string_view name) noexcept {
      return name.starts_with("Vxlan") && name.ends_with("-mlag");
    }
    char const* typeData() const override { return "MlagVxlan::PrimarySm::NestedSm_VtepStatus"; }
    void onAttribute(Brix::FieldId field, void const* key) override;

    PrimarySm* primarySm() const noexcept { return owner(); }
    Brix::String name() const { return input() ? input()->name() : Brix::String(); }
    bool isMlagVtepStatus() const noexcept { return isMlagVtepStatus_; }
    bool initialized() const noexcept { return initialized_; }

    void handleInitialized();
    void handleVtepBfdStatus();
    void handleVtepBfdStatus(Lanx::IpAddr ip);
    void cleanup();

   protected:
    // An entry replaced under its name is followed from then on; nothing runs at the rebind.
    void zombieCleanup() override { cleanup(); }

   private:
    // Writes `status` to this entry's kind of collection under `ip`, or deletes the key there
    // when `status` is the default.
    void applyStatus(Lanx::IpAddr ip, VxlanController::BfdPeerStatusV2 const& status);
    // Whether some entry of this entry's kind reports `ip`.
    bool reportedByItsKind(Lanx::IpAddr ip) const;

    bool isMlagVtepStatus_ = false;
    bool initialized_ = false;
  };

  PrimarySm(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
            Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
            Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
            Brix::Ptr<Arp::InputConfig const> arpInputConfig, Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer,
            Brix::Ptr<Mlag::Status const> mlagStatus);
  static void PrimarySmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                          Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus, Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                          Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                          Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                          Brix::Ptr<Arp::InputConfig const> arpInputConfig, Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer,
                          Brix::Ptr<Mlag::Status const> mlagStatus);

  char const* typeData() const override { return "MlagVxlan::PrimarySm"; }

  Brix::Ptr<Mlag::VxlanStatus> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  Brix::Ptr<Mlag::VxlanStatus const> const& recvVxStatus() const noexcept { return recvVxStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  Brix::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const noexcept { return vtiStatusDir_; }
  Brix::Ptr<VxlanController::VtepStatusDirV2 const> const& vtepStatusDir() const noexcept {
    return vtepStatusDir_.ptr();
  }
  Brix::Ptr<Arp::InputConfig const> const& arpInputConfig() const noexcept { return arpInputConfig_.ptr(); }
  Brix::Ptr<Bfd::StatusPeer> const& bfdStatusPeer() const noexcept { return bfdStatusPeer_.ptr(); }
  Brix::Ptr<Mlag::Status const> const& mlagStatus() const noexcept { return mlagStatus_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const {
    return std::tie(sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_, vtiStatusDir_, vtepStatusDir_.ptr(),
                    arpInputConfig_.ptr(), bfdStatusPeer_.ptr(), mlagStatus_);
  }

  VlanToVniMapSm::Ptr vlanToVniMapSmIs(Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                       Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                       Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                       Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                       Brix::Ptr<Mlag::Status const> mlagStatus) {
    return vlanToVniMapSm_.is(std::move(vtiStatusDir), std::move(sentVxStatus), std::move(recvVxStatus),
                              std::move(localVxStatus), std::move(mlagStatus));
  }
  VlanToVniMapSm::Ptr vlanToVniMapSmDel() { return vlanToVniMapSm_.del(); }
  VlanToVniMapSm* vlanToVniMapSm() const noexcept { return vlanToVniMapSm_.get(); }

  VrfConfigSm::Ptr vrfIs(Brix::Ptr<Arp::InputConfigVrf const> const& vrf) { return vrf_.is(vrf); }
  Brix::Ptr<Arp::InputConfigVrf const> vrfDel(L3::VrfName const& name) { return vrf_.del(name); }
  void vrfDelAll() { vrf_.delAll(); }
  Brix::Ptr<Arp::InputConfigVrf const> vrf(L3::VrfName const& name) const {
    auto* r = vrf_(name);
    return r ? r->vrf() : nullptr;
  }
  VrfConfigSm* vokVrf(L3::VrfName const& name) const noexcept { return vrf_(name); }
  std::size_t vrfCount() const noexcept { return vrf_.size(); }

  NestedSm_VtepStatus::Ptr vtepStatusIs(Brix::Ptr<VxlanController::VtepStatusV2 const> const& entry) {
    return vtepStatus_.is(entry);
  }
  Brix::Ptr<VxlanController::VtepStatusV2 const> vtepStatusDel(Brix::String const& name) {
    return vtepStatus_.del(name);
  }
  void vtepStatusDelAll() { vtepStatus_.delAll(); }
  NestedSm_VtepStatus* vtepStatus(Brix::String const& name) const noexcept { return vtepStatus_(name); }
  std::size_t vtepStatusCount() const noexcept { return vtepStatus_.size(); }

  BfdPeerStatusSm::Ptr bfdPeerStatusSmIs(Bfd::Peer const& peer, Brix::Ptr<Bfd::PeerStatus const> peerStatus,
                                         Brix::Ptr<Mlag::VxlanStatus> sentVxStatus) {
    return bfdPeerStatusSm_.is(peer, std::move(peerStatus), std::move(sentVxStatus));
  }
  // Runs no cleanup: the caller calls doCleanup() on what comes back.
  BfdPeerStatusSm::Ptr bfdPeerStatusSmDel(Bfd::Peer const& peer) { return bfdPeerStatusSm_.del(peer); }
  void bfdPeerStatusSmDelAll() { bfdPeerStatusSm_.delAll(); }
  BfdPeerStatusSm* bfdPeerStatusSm(Bfd::Peer const& peer) const noexcept { return bfdPeerStatusSm_(peer); }
  std::size_t bfdPeerStatusSmCount() const noexcept { return bfdPeerStatusSm_.size(); }

  void handleBfdPeerStatus();
  void handleBfdPeerStatus(Bfd::Peer const& peer);
  void handleSharedDynVlan();
  void handleSharedDynVlan(Bridging::VlanId vlan);
  void handleInitialized();
  void doCleanup();

  static void recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                   void const*) noexcept;
  static void vtepStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                    void const*) noexcept;
  static void bfdStatusPeerDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                    void const*) noexcept;
  static void arpInputConfigDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                     void const*) noexcept;

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  // The child of `peer` goes, after it withdrew its entry.
  void dropBfdPeerStatusSm(Bfd::Peer const& peer);
  // Whether the ARP input configures `vrf`; no input configures none.
  bool vrfConfigured(L3::VrfName const& vrf) const;

  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus_;
  Vok::Input<Mlag::VxlanStatus> recvVxStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
  Brix::Ptr<Vxlan::VtiStatusDir const> const vtiStatusDir_;
  Vok::Input<VxlanController::VtepStatusDirV2> vtepStatusDir_;
  Vok::Input<Arp::InputConfig> arpInputConfig_;
  Vok::Input<Bfd::StatusPeer, Bfd::StatusPeer> bfdStatusPeer_;
  Brix::Ptr<Mlag::Status const> const mlagStatus_;
  Vok::Child<VlanToVniMapSm> vlanToVniMapSm_{this};
  Vok::InputCollection<Brix::String, NestedSm_VtepStatus> vtepStatus_{this, "MlagVxlan::PrimarySm", "vtepStatus"};
  Vok::ChildCollection<Bfd::Peer, BfdPeerStatusSm> bfdPeerStatusSm_{this, "MlagVxlan::PrimarySm", "bfdPeerStatusSm"};
  Vok::InputCollection<L3::VrfName, VrfConfigSm> vrf_{this, "MlagVxlan::PrimarySm", "vrf"};
  bool initialized_ = false;
};

PrimarySm::Ptr primarySmFactory(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                                Brix::Ptr<Arp::InputConfig const> arpInputConfig,
                                Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer, Brix::Ptr<Mlag::Status const> mlagStatus);

}  // namespace MlagVxlan
