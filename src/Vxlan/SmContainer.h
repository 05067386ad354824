// SmContainer: the one entity through which the hosting plug-in drives the library. It holds
// one attribute per top-level state machine, brought into being and ended by the plug-in; its
// attributes are the only ones in the system whose changes are published.
#pragma once

#include <string>

#include "Vxlan/ActiveArpP2pSm.h"
#include "Vxlan/FloodListInputSelectorSm.h"
#include "Vxlan/PrimarySm.h"
#include "Vxlan/RemoteHostTableSm.h"
#include "Vxlan/ScheduledMlagPeerArpSyncSm.h"
#include "Vxlan/SdeToBumStatusSm.h"
#include "Vxlan/SecondarySm.h"
#include "Vxlan/SourceDirEntryP2pSm.h"
#include "runtime/Entity.h"
#include "runtime/StateMachine.h"
#include "runtime/String.h"
#include "trace/RingLog.h"

namespace MlagVxlan {

class SmContainer : public Vok::Entity, public Vok::Impl::MemberOwner {
 public:
  using Ptr = Brix::Ptr<SmContainer>;

  static constexpr char const* vokTypeName = "MlagVxlan::SmContainer";
  static constexpr bool vokNameOnly = true;  // a directory may make it from its name alone

  // One field per child, in declared order. A child whose class is not built yet keeps its
  // field, so the numbers do not move when it arrives.
  enum Field : Brix::FieldId {
    vokNoField,
    remoteHostTableSmField,
    primarySmField,
    secondarySmField,
    activeArpP2pToCorestateSmField,
    activeArpCorestateToP2pSmField,
    vcsSdeCorestateToP2pSmField,
    vcsSdeCorestateToBumStatusP2pSmField,
    floodListInputSelectorSmField,
    scheduledMlagPeerArpSyncSmField,
  };

  explicit SmContainer(Brix::String name);
  static void SmContainerIs(Ptr& out, Brix::String name);

  char const* typeData() const override { return vokTypeName; }
  void lastUserGone() override;

  Brix::String const& nameString() const noexcept { return name_; }

  RemoteHostTableSm::Ptr const& remoteHostTableSm() const noexcept { return remoteHostTableSm_.ptr(); }
  RemoteHostTableSm::Ptr remoteHostTableSmIs(
      Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
      Brix::Ptr<Bridging::Config const> bridgingConfig, Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
      Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus, Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus,
      Brix::Ptr<Mlag::Status const> mlagStatus, Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
      Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir);
  RemoteHostTableSm::Ptr remoteHostTableSmDel();

  PrimarySm::Ptr const& primarySm() const noexcept { return primarySm_.ptr(); }
  PrimarySm::Ptr primarySmIs(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                             Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                             Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                             Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                             Brix::Ptr<Arp::InputConfig const> arpInputConfig, Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer,
                             Brix::Ptr<Mlag::Status const> mlagStatus);
  PrimarySm::Ptr primarySmDel();

  SecondarySm::Ptr const& secondarySm() const noexcept { return secondarySm_.ptr(); }
  SecondarySm::Ptr secondarySmIs(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                 Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                 Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                 Brix::Ptr<Bridging::Config const> bridgingConfig,
                                 Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir,
                                 Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                 Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                                 Brix::Ptr<Mlag::Status const> mlagStatus);
  SecondarySm::Ptr secondarySmDel();

  ActiveArpP2pSm::Ptr const& activeArpP2pToCorestateSm() const noexcept { return activeArpP2pToCorestateSm_.ptr(); }
  ActiveArpP2pSm::Ptr activeArpP2pToCorestateSmIs(MLAGVXLAN_ACTIVE_ARP_ARGS);
  ActiveArpP2pSm::Ptr activeArpP2pToCorestateSmDel();

  ActiveArpP2pSm::Ptr const& activeArpCorestateToP2pSm() const noexcept { return activeArpCorestateToP2pSm_.ptr(); }
  ActiveArpP2pSm::Ptr activeArpCorestateToP2pSmIs(MLAGVXLAN_ACTIVE_ARP_ARGS);
  ActiveArpP2pSm::Ptr activeArpCorestateToP2pSmDel();

  SourceDirEntryP2pSm::Ptr const& vcsSdeCorestateToP2pSm() const noexcept { return vcsSdeCorestateToP2pSm_.ptr(); }
  SourceDirEntryP2pSm::Ptr vcsSdeCorestateToP2pSmIs(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                    Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name);
  SourceDirEntryP2pSm::Ptr vcsSdeCorestateToP2pSmDel();

  SdeToBumStatusSm::Ptr const& vcsSdeCorestateToBumStatusP2pSm() const noexcept {
    return vcsSdeCorestateToBumStatusP2pSm_.ptr();
  }
  SdeToBumStatusSm::Ptr vcsSdeCorestateToBumStatusP2pSmIs(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                          Brix::Ptr<Vxlan::BumStatus> bumStatusOutput);
  SdeToBumStatusSm::Ptr vcsSdeCorestateToBumStatusP2pSmDel();

  FloodListInputSelectorSm::Ptr const& floodListInputSelectorSm() const noexcept {
    return floodListInputSelectorSm_.ptr();
  }
  FloodListInputSelectorSm::Ptr floodListInputSelectorSmIs(Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                                                           Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                                           Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                           Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                                                           Brix::String name);
  FloodListInputSelectorSm::Ptr floodListInputSelectorSmDel();

  ScheduledMlagPeerArpSyncSm::Ptr const& scheduledMlagPeerArpSyncSm() const noexcept {
    return scheduledMlagPeerArpSyncSm_.ptr();
  }
  ScheduledMlagPeerArpSyncSm::Ptr scheduledMlagPeerArpSyncSmIs(Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus,
                                                               Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                               Brix::Ptr<Mlag::VxlanStatus> localVxStatus);
  ScheduledMlagPeerArpSyncSm::Ptr scheduledMlagPeerArpSyncSmDel();

  void handleInitialized();

 private:
  Brix::String const name_;
  Vok::Child<RemoteHostTableSm> remoteHostTableSm_{this, this, remoteHostTableSmField};
  Vok::Child<PrimarySm> primarySm_{this, this, primarySmField};
  Vok::Child<SecondarySm> secondarySm_{this, this, secondarySmField};
  Vok::Child<ActiveArpP2pSm> activeArpP2pToCorestateSm_{this, this, activeArpP2pToCorestateSmField};
  Vok::Child<ActiveArpP2pSm> activeArpCorestateToP2pSm_{this, this, activeArpCorestateToP2pSmField};
  Vok::Child<SourceDirEntryP2pSm> vcsSdeCorestateToP2pSm_{this, this, vcsSdeCorestateToP2pSmField};
  Vok::Child<SdeToBumStatusSm> vcsSdeCorestateToBumStatusP2pSm_{this, this, vcsSdeCorestateToBumStatusP2pSmField};
  Vok::Child<FloodListInputSelectorSm> floodListInputSelectorSm_{this, this, floodListInputSelectorSmField};
  Vok::Child<ScheduledMlagPeerArpSyncSm> scheduledMlagPeerArpSyncSm_{this, this, scheduledMlagPeerArpSyncSmField};
};

SmContainer::Ptr smContainerFactory(Brix::String const& name);

// The ring-buffer trace of the library: one handle per process, made by the first container,
// never released. Null until then.
RingLog::TraceHandle* vxlanRlHandle() noexcept;
void vxlanRlHandleInit();
// "Mlag-Vxlan.rl" when RINGLOGDIR is set, "Mlag-Vxlan-%d.rl" when it is not.
std::string vxlanRlFileName();
RingLog::SizeSpec vxlanRlSizeSpec();

}  // namespace MlagVxlan
