#include "Vxlan/SmContainer.h"

#include <cstdlib>

namespace MlagVxlan {

namespace {
RingLog::TraceHandle* rlHandle = nullptr;
}

RingLog::TraceHandle* vxlanRlHandle() noexcept { return rlHandle; }

std::string vxlanRlFileName() {
  std::string name = "Mlag-Vxlan";
  if (!std::getenv("RINGLOGDIR")) name += "-%d";
  return name + ".rl";
}

RingLog::SizeSpec vxlanRlSizeSpec() {
  // Levels 5 and 6 are the ones the system writes.
  return RingLog::SizeSpec{{32, 8, 8, 8, 8, 256, 256, 8, 8, 8}};
}

void vxlanRlHandleInit() {
  if (rlHandle) return;
  std::string name = vxlanRlFileName();
  RingLog::SizeSpec sizes = vxlanRlSizeSpec();
  rlHandle = RingLog::initialize_handle(name.c_str(), &sizes, nullptr, 0, 0);
}

SmContainer::SmContainer(Brix::String name) : MemberOwner(this), name_(std::move(name)) { vxlanRlHandleInit(); }

void SmContainer::SmContainerIs(Ptr& out, Brix::String name) {
  out = Brix::newNode<SmContainer>(std::move(name));
  vxlanRlHandleInit();
}

SmContainer::Ptr smContainerFactory(Brix::String const& name) {
  SmContainer::Ptr out;
  SmContainer::SmContainerIs(out, name);
  return out;
}

void SmContainer::handleInitialized() { vxlanRlHandleInit(); }

// Teardown: the children go one by one in declared order, each finished before the next.
void SmContainer::lastUserGone() {
  incUse();  // a delivery of the children's removal holds the container: keep it whole meanwhile
  Brix::hasNotificationActiveSet(this, false);
  (void)remoteHostTableSmDel();
  (void)primarySmDel();
  (void)secondarySmDel();
  (void)activeArpP2pToCorestateSmDel();
  (void)activeArpCorestateToP2pSmDel();
  (void)vcsSdeCorestateToP2pSmDel();
  (void)vcsSdeCorestateToBumStatusP2pSmDel();
  (void)floodListInputSelectorSmDel();
  (void)scheduledMlagPeerArpSyncSmDel();
  delete this;
}

RemoteHostTableSm::Ptr SmContainer::remoteHostTableSmIs(
    Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
    Brix::Ptr<Bridging::Config const> bridgingConfig, Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
    Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus, Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus,
    Brix::Ptr<Mlag::Status const> mlagStatus, Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
    Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir) {
  return remoteHostTableSm_.is(std::move(sentP2pHostTable), std::move(mlagHostTable), std::move(bridgingConfig),
                               std::move(bridgingStatus), std::move(vxlanFdbStatus), std::move(mlagProtoStatus),
                               std::move(mlagStatus), std::move(controllerStatusBaseDir), std::move(vtiStatusDir));
}

RemoteHostTableSm::Ptr SmContainer::remoteHostTableSmDel() { return remoteHostTableSm_.del(); }

PrimarySm::Ptr SmContainer::primarySmIs(
    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
    Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
    Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir, Brix::Ptr<Arp::InputConfig const> arpInputConfig,
    Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer, Brix::Ptr<Mlag::Status const> mlagStatus) {
  return primarySm_.is(std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus),
                       std::move(vtiStatusDir), std::move(vtepStatusDir), std::move(arpInputConfig),
                       std::move(bfdStatusPeer), std::move(mlagStatus));
}

PrimarySm::Ptr SmContainer::primarySmDel() { return primarySm_.del(); }

SecondarySm::Ptr SmContainer::secondarySmIs(
    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
    Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
    Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
    Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir, Brix::Ptr<Mlag::Status const> mlagStatus) {
  return secondarySm_.is(std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus),
                         std::move(bridgingConfig), std::move(vlanConfigFlatDir), std::move(vtiStatusDir),
                         std::move(vtepStatusDir), std::move(mlagStatus));
}

SecondarySm::Ptr SmContainer::secondarySmDel() { return secondarySm_.del(); }

ActiveArpP2pSm::Ptr SmContainer::activeArpP2pToCorestateSmIs(MLAGVXLAN_ACTIVE_ARP_ARGS) {
  return activeArpP2pToCorestateSm_.is(MLAGVXLAN_ACTIVE_ARP_PASS);
}

ActiveArpP2pSm::Ptr SmContainer::activeArpP2pToCorestateSmDel() { return activeArpP2pToCorestateSm_.del(); }

ActiveArpP2pSm::Ptr SmContainer::activeArpCorestateToP2pSmIs(MLAGVXLAN_ACTIVE_ARP_ARGS) {
  return activeArpCorestateToP2pSm_.is(MLAGVXLAN_ACTIVE_ARP_PASS);
}

ActiveArpP2pSm::Ptr SmContainer::activeArpCorestateToP2pSmDel() { return activeArpCorestateToP2pSm_.del(); }

SourceDirEntryP2pSm::Ptr SmContainer::vcsSdeCorestateToP2pSmIs(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                               Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                                                               Brix::String name) {
  return vcsSdeCorestateToP2pSm_.is(std::move(sdeInput), std::move(sdeOutput), std::move(name));
}

SourceDirEntryP2pSm::Ptr SmContainer::vcsSdeCorestateToP2pSmDel() { return vcsSdeCorestateToP2pSm_.del(); }

SdeToBumStatusSm::Ptr SmContainer::vcsSdeCorestateToBumStatusP2pSmIs(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                                     Brix::Ptr<Vxlan::BumStatus> bumStatusOutput) {
  return vcsSdeCorestateToBumStatusP2pSm_.is(std::move(sdeInput), std::move(bumStatusOutput));
}

SdeToBumStatusSm::Ptr SmContainer::vcsSdeCorestateToBumStatusP2pSmDel() {
  return vcsSdeCorestateToBumStatusP2pSm_.del();
}

FloodListInputSelectorSm::Ptr SmContainer::floodListInputSelectorSmIs(Brix::Ptr<Mlag::VxlanStatus const> vxlanStatus,
                                                                      Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                                                      Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                                      Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput,
                                                                      Brix::String name) {
  return floodListInputSelectorSm_.is(std::move(vxlanStatus), std::move(bumStatusInput), std::move(sdeInput),
                                      std::move(sdeOutput), std::move(name));
}

FloodListInputSelectorSm::Ptr SmContainer::floodListInputSelectorSmDel() { return floodListInputSelectorSm_.del(); }

ScheduledMlagPeerArpSyncSm::Ptr SmContainer::scheduledMlagPeerArpSyncSmIs(
    Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
    Brix::Ptr<Mlag::VxlanStatus> localVxStatus) {
  return scheduledMlagPeerArpSyncSm_.is(std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus));
}

ScheduledMlagPeerArpSyncSm::Ptr SmContainer::scheduledMlagPeerArpSyncSmDel() {
  return scheduledMlagPeerArpSyncSm_.del();
}

}  // namespace MlagVxlan
