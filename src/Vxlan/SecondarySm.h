// SecondarySm: the role state machine of the MLAG secondary. It applies what the primary
// publishes in recvVxStatus to localVxStatus, tells the primary through sentVxStatus which VLANs
// the pair may use as shared dynamic VLANs, owns the VLAN-to-VNI exchange of this side, applies
// the peer's ARP tables (one ArpStatusSm or ArpStatusWithVlanSm per VRF and form), and, when the
// role ends, leaves both status objects clean for the next role.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <tuple>

#include "Vxlan/RoleCommon.h"
#include "Vxlan/VlanConfigConfigSourceSm.h"
#include "Vxlan/VlanToVniMapSm.h"
#include "Vxlan/VxlanBfdStatusSm.h"
#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/StateMachine.h"
#include "types/L3.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/Swix.h"

namespace MlagVxlan {

// Whether the secondary takes its VLANs from the flat VLAN table (on) or from the bridging
// configuration's entities (off). Asked of the toggle "BreakBridgingConfigVlanConfigVxlan" once
// per process, default on. A test may choose the answer without asking again.
bool toggleBreakBridgingConfigVlanConfigVxlanEnabled();
void toggleBreakBridgingConfigVlanConfigVxlanForTest(std::optional<bool> state);

class SecondarySm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<SecondarySm>;

  // What the appliers of the peer's two ARP table forms share. Each watches one VRF's table of
  // its form and writes localVxStatus.arpStatusWithVlan[vrf]; the peer's flag
  // peerArpByVlanIpCapable wakes the one of its form and puts the other to sleep. `Self` gives
  // the form: its handlers, its trace texts and which value of the flag wakes it.
  //
  // A notification that reaches a reactor after its VRF has left recvVxStatus (a writer of the
  // old table, served before this role hears of the VRF's leaving) finds no peer table. It reads
  // as an empty one: the row the notification names goes from the output, and the VRF with its
  // last row; nothing is ever added from a table the peer no longer publishes. That is what the
  // removal of the reactor, which follows, makes of the VRF anyway.
  template <class Self, class Table>
  class ArpTableSm : public Vok::Reactor<SecondarySm, Table> {
   public:
    using Ptr = Brix::Ptr<Self>;

    void handleInitialized();
    using VokRecvVxStatus = VokPeerArpCapable<ArpTableSm, &ArpTableSm::handleInitialized>;
    static char const* vokRecvVxStatusTypeName() noexcept { return Self::recvTypeName; }

    static L3::VrfName keyOf(Table const& table) { return table.vrfName(); }
    void onAttribute(Brix::FieldId field, void const* key) override;

    SecondarySm* secondarySm() const noexcept { return this->owner(); }
    L3::VrfName const& vrfName() const noexcept { return vrfName_; }
    bool initialized() const noexcept { return initialized_; }

    void recvVxStatusIs(Brix::Ptr<Mlag::VxlanStatus const> const& status) {
      VokRecvVxStatus::bind(recvVxStatus_, status);
    }
    void recvVxStatusDel() { recvVxStatus_.del(); }
    VokRecvVxStatus* recvVxStatus() const noexcept { return recvVxStatus_.get(); }

    void cleanup();

   protected:
    ArpTableSm(Brix::Ptr<Table const> const& table, SecondarySm* secondarySm);
    void zombieCleanup() override { cleanup(); }

    Mlag::VxlanStatus& local() const { return *this->owner()->localVxStatus(); }
    Mlag::VxlanStatus const& recv() const { return *this->owner()->recvVxStatus(); }
    // The rows of `out` that `stale` picks go, each with its trace (Self::rowText is its value).
    template <class Stale>
    void dropStaleRows(Mlag::VxlanArpStatusWithVlan& out, Stale stale);
    // One row goes from `out`, and the VRF from localVxStatus with its last row.
    void dropRow(Mlag::VxlanArpStatusWithVlan& out, Mlag::VlanIpSource const& key);

    bool initialized_ = false;

   private:
    Self& self() noexcept { return static_cast<Self&>(*this); }

    L3::VrfName const vrfName_;
    Vok::ReactorPtr<VokRecvVxStatus> recvVxStatus_{this};
  };

  // Applies the peer's table by VRF (IPv4 only), under VLAN 0 and the source "peer".
  class ArpStatusSm : public ArpTableSm<ArpStatusSm, Mlag::VxlanArpStatus> {
   public:
    ArpStatusSm(Brix::Ptr<Mlag::VxlanArpStatus const> const& arpStatus, SecondarySm* secondarySm);
    char const* typeData() const override { return "MlagVxlan::SecondarySm::ArpStatusSm"; }
    Brix::Ptr<Mlag::VxlanArpStatus const> arpStatus() const noexcept { return inputPtr(); }

    void handlePeerArpEntry();
    void handlePeerArpEntry(Lanx::IpAddr ip);

   private:
    friend class ArpTableSm<ArpStatusSm, Mlag::VxlanArpStatus>;
    using Key = Lanx::IpAddr;
    static constexpr char recvTypeName[] = "MlagVxlan::SecondarySm::ArpStatusSm::VokRecvVxStatus";
    static constexpr char allKeysName[] = "handlePeerArpEntry";
    static constexpr char initializedText[] =
        "SecondarySm::ArpStatusSm({vrfName})::handleInitialized() peerArpByVlanIpCapable {capable}";
    static constexpr char cleanupText[] = "SecondarySm::ArpStatusSm({vrfName})::cleanup()";
    static constexpr char delVrfText[] = "SecondarySm::ArpStatusSm({vrfName})::handlePeerArpEntry() del VRF {vrfName}";
    static bool awakeWhen(bool capable) noexcept { return !capable; }
    static bool peerHas(Mlag::VxlanStatus const& recv, L3::VrfName const& vrf) { return recv.arpStatusHas(vrf); }
    static Lanx::IpAddr rowText(Mlag::VlanIpSource const& row) noexcept { return row.ipAddr().v4Addr(); }
    void handleAll() { handlePeerArpEntry(); }
    void handleKey(Key key) { handlePeerArpEntry(key); }
  };

  // Applies the peer's table with VLAN (IPv4 and IPv6), each key as it stands.
  class ArpStatusWithVlanSm : public ArpTableSm<ArpStatusWithVlanSm, Mlag::VxlanArpStatusWithVlan> {
   public:
    ArpStatusWithVlanSm(Brix::Ptr<Mlag::VxlanArpStatusWithVlan const> const& arpStatusWithVlan,
                        SecondarySm* secondarySm);
    char const* typeData() const override { return "MlagVxlan::SecondarySm::ArpStatusWithVlanSm"; }
    Brix::Ptr<Mlag::VxlanArpStatusWithVlan const> arpStatusWithVlan() const noexcept { return inputPtr(); }

    void handlePeerArpEntryWithVlan();
    void handlePeerArpEntryWithVlan(Mlag::VlanIpSource const& key);

   private:
    friend class ArpTableSm<ArpStatusWithVlanSm, Mlag::VxlanArpStatusWithVlan>;
    using Key = Mlag::VlanIpSource;
    static constexpr char recvTypeName[] = "MlagVxlan::SecondarySm::ArpStatusWithVlanSm::VokRecvVxStatus";
    static constexpr char allKeysName[] = "handlePeerArpEntryWithVlan";
    static constexpr char initializedText[] =
        "SecondarySm::ArpStatusWithVlanSm({vrfName})::handleInitialized() peerArpByVlanIpCapable {capable}";
    static constexpr char cleanupText[] = "SecondarySm::ArpStatusWithVlanSm({vrfName})::cleanup()";
    static constexpr char delVrfText[] =
        "SecondarySm::ArpStatusWithVlanSm({vrfName})::handlePeerArpEntryWithVlan() del VRF {vrfName}";
    static bool awakeWhen(bool capable) noexcept { return capable; }
    static bool peerHas(Mlag::VxlanStatus const& recv, L3::VrfName const& vrf) {
      return recv.arpStatusWithVlanHas(vrf);
    }
    static Mlag::VlanIpSource const& rowText(Mlag::VlanIpSource const& row) noexcept { return row; }
    void handleAll() { handlePeerArpEntryWithVlan(); }
    void handleKey(Key const& key) { handlePeerArpEntryWithVlan(key); }
  };

  SecondarySm(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
              Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
              Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir,
              Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
              Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
              Brix::Ptr<Mlag::Status const> mlagStatus);
  static void SecondarySmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                            Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus, Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                            Brix::Ptr<Bridging::Config const> bridgingConfig,
                            Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir,
                            Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                            Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                            Brix::Ptr<Mlag::Status const> mlagStatus);

  char const* typeData() const override { return "MlagVxlan::SecondarySm"; }

  Brix::Ptr<Mlag::VxlanStatus> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  Brix::Ptr<Mlag::VxlanStatus const> const& recvVxStatus() const noexcept { return recvVxStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  Brix::Ptr<Bridging::Config const> const& bridgingConfig() const noexcept { return bridgingConfig_.ptr(); }
  Brix::Ptr<Bridging::Flat::VlanConfigDir const> const& vlanConfigFlatDir() const noexcept {
    return vlanConfigFlatDir_.ptr();
  }
  Brix::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const noexcept { return vtiStatusDir_; }
  Brix::Ptr<VxlanController::VtepStatusDirV2 const> const& vtepStatusDir() const noexcept { return vtepStatusDir_; }
  Brix::Ptr<Mlag::Status const> const& mlagStatus() const noexcept { return mlagStatus_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const {
    return std::tie(sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_, bridgingConfig_.ptr(), vlanConfigFlatDir_.ptr(),
                    vtiStatusDir_, vtepStatusDir_, mlagStatus_);
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

  ArpStatusSm::Ptr arpStatusIs(Brix::Ptr<Mlag::VxlanArpStatus const> const& arpStatus) {
    return arpStatus_.is(arpStatus);
  }
  Brix::Ptr<Mlag::VxlanArpStatus const> arpStatusDel(L3::VrfName const& vrfName) { return arpStatus_.del(vrfName); }
  void arpStatusDelAll() { arpStatus_.delAll(); }
  ArpStatusSm* vokArpStatus(L3::VrfName const& vrfName) const noexcept { return arpStatus_(vrfName); }
  std::size_t arpStatusCount() const noexcept { return arpStatus_.size(); }

  ArpStatusWithVlanSm::Ptr arpStatusWithVlanIs(Brix::Ptr<Mlag::VxlanArpStatusWithVlan const> const& arpStatusWithVlan) {
    return arpStatusWithVlan_.is(arpStatusWithVlan);
  }
  Brix::Ptr<Mlag::VxlanArpStatusWithVlan const> arpStatusWithVlanDel(L3::VrfName const& vrfName) {
    return arpStatusWithVlan_.del(vrfName);
  }
  void arpStatusWithVlanDelAll() { arpStatusWithVlan_.delAll(); }
  ArpStatusWithVlanSm* vokArpStatusWithVlan(L3::VrfName const& vrfName) const noexcept {
    return arpStatusWithVlan_(vrfName);
  }
  std::size_t arpStatusWithVlanCount() const noexcept { return arpStatusWithVlan_.size(); }

  // The shared dynamic VLANs from the VLAN configuration: a VLAN configured by a source that is
  // not shareable leaves the set in both sentVxStatus and localVxStatus, and comes back when its
  // configuration goes or its source becomes shareable. Only one of the two inputs is live, as
  // the toggle says; the handlers of the flat table take the default record where the table is
  // damaged, and a walk ends at a damaged step.
  void vok_handleBridgingConfig_vlanConfig(Bridging::VlanId vlanId);
  void vok_handleVlanConfigFlatDir_vlanConfig(Bridging::VlanId vlanId);
  void handleVlanConfig();
  void handleVlanConfig(Bridging::VlanId vlanId);
  void handleVlanConfigFlat();
  void handleVlanConfigFlat(Bridging::VlanId vlanId);
  void handleVlanSource(Bridging::VlanId vlanId, Brix::String const& source);
  void vlanConfigSourceSmCleanup(Bridging::VlanId vlanId);
  // The sources whose VLANs stay shared: "static", "controller", "evpn", "mlag" and "default".
  static bool isShareableVlanSource(std::string_view source) noexcept;

  VlanConfigConfigSourceSm::Ptr vlanConfigConfigSourceSmIs(Brix::Ptr<Bridging::VlanConfig const> const& vlanConfig);
  VlanConfigConfigSourceSm::Ptr vlanConfigConfigSourceSmDel(Bridging::VlanId vlanId) {
    return vlanConfigConfigSourceSm_.del(vlanId);
  }
  void vlanConfigConfigSourceSmDelAll() { vlanConfigConfigSourceSm_.delAll(); }
  VlanConfigConfigSourceSm* vlanConfigConfigSourceSm(Bridging::VlanId vlanId) const noexcept {
    return vlanConfigConfigSourceSm_(vlanId);
  }
  std::size_t vlanConfigConfigSourceSmCount() const noexcept { return vlanConfigConfigSourceSm_.size(); }

  // The BFD state the primary publishes, copied to localVxStatus. The all-keys forms of the two
  // row collections rebuild the output instead of reconciling it; the third reconciles its
  // children key by key, and leaves a local key without a child as it is.
  void handleVtepBfdStatus();
  void handleVtepBfdStatus(Lanx::IpAddr ip);
  void handleMlagBfdPeerStatus();
  void handleMlagBfdPeerStatus(Lanx::IpAddr ip);
  void handleVxlanBfdPeerStatus();
  void handleVxlanBfdPeerStatus(Mlag::VtiVtep const& vtiVtep);

  VxlanBfdStatusSm::Ptr vxlanBfdStatusSmIs(Mlag::VtiVtep const& vtiVtep,
                                           Brix::Ptr<Mlag::VxlanBfdStatus const> vxlanBfdStatus,
                                           Brix::Ptr<Mlag::VxlanStatus> localVxStatus) {
    return vxlanBfdStatusSm_.is(vtiVtep, std::move(vxlanBfdStatus), std::move(localVxStatus));
  }
  // Runs no cleanup: the caller calls doCleanup() on what comes back.
  VxlanBfdStatusSm::Ptr vxlanBfdStatusSmDel(Mlag::VtiVtep const& vtiVtep) { return vxlanBfdStatusSm_.del(vtiVtep); }
  VxlanBfdStatusSm* vxlanBfdStatusSm(Mlag::VtiVtep const& vtiVtep) const noexcept { return vxlanBfdStatusSm_(vtiVtep); }
  std::size_t vxlanBfdStatusSmCount() const noexcept { return vxlanBfdStatusSm_.size(); }

  void handleInitialized();
  void doCleanup();

  // The VLAN range that may be offered for dynamic use, from the bridging configuration's two
  // bounds, taken in either order: a VLAN outside [min, max] is not offered. Both bounds 0 means
  // that no range is configured, and every VLAN may be offered.
  static bool outsideVlanRange(Bridging::VlanId vlan, std::uint16_t bound1, std::uint16_t bound2) noexcept;

  static void recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                   void const*) noexcept;
  static void bridgingConfigDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                     void const*) noexcept;
  static void vlanConfigFlatDirDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                        void const*) noexcept;

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  template <class Rows>
  void handleBfdRows();
  template <class Rows>
  void handleBfdRow(Lanx::IpAddr ip);
  // The child of `vtiVtep` goes, after it withdrew its key.
  void dropVxlanBfdStatusSm(Mlag::VtiVtep const& vtiVtep);

  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus_;
  Vok::Input<Mlag::VxlanStatus> recvVxStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
  Vok::Input<Bridging::Config> bridgingConfig_;
  Vok::Input<Bridging::Flat::VlanConfigDir> vlanConfigFlatDir_;
  Brix::Ptr<Vxlan::VtiStatusDir const> const vtiStatusDir_;
  Brix::Ptr<VxlanController::VtepStatusDirV2 const> const vtepStatusDir_;
  Brix::Ptr<Mlag::Status const> const mlagStatus_;
  Vok::ChildCollection<Bridging::VlanId, VlanConfigConfigSourceSm> vlanConfigConfigSourceSm_{
      this, "MlagVxlan::SecondarySm", "vlanConfigConfigSourceSm"};
  Vok::ChildCollection<Mlag::VtiVtep, VxlanBfdStatusSm> vxlanBfdStatusSm_{this, "MlagVxlan::SecondarySm",
                                                                          "vxlanBfdStatusSm"};
  Vok::Child<VlanToVniMapSm> vlanToVniMapSm_{this};
  Vok::InputCollection<L3::VrfName, ArpStatusSm> arpStatus_{this, "MlagVxlan::SecondarySm", "arpStatus"};
  Vok::InputCollection<L3::VrfName, ArpStatusWithVlanSm> arpStatusWithVlan_{this, "MlagVxlan::SecondarySm",
                                                                            "arpStatusWithVlan"};
  bool initialized_ = false;
  VOK_SM_VALUES(configSourceForVlan, Bridging::VlanId, Swix::FString)
};

SecondarySm::Ptr secondarySmFactory(
    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
    Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
    Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
    Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir, Brix::Ptr<Mlag::Status const> mlagStatus);

}  // namespace MlagVxlan
