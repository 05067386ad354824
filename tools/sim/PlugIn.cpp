#include "PlugIn.h"

#include "Switch.h"

namespace Sim {

void plugInRun(MlagVxlan::SmContainer& c, SwitchEntities const& s) {
  Mlag::MlagState const state = s.mlagStatus->mlagState();
  bool const primary = state == Mlag::MlagState::primary;
  bool const secondary = state == Mlag::MlagState::secondary;

  if (!primary) (void)c.primarySmDel();
  if (!secondary) (void)c.secondarySmDel();
  if (primary) {
    c.primarySmIs(s.sentVxStatus, s.recvVxStatus, s.localVxStatus, s.vtiStatusDir, s.vtepStatusDir, s.arpInputConfig,
                  s.bfdStatusPeer, s.mlagStatus);
  }
  if (secondary) {
    c.secondarySmIs(s.sentVxStatus, s.recvVxStatus, s.localVxStatus, s.bridgingConfig, s.vlanConfigFlatDir,
                    s.vtiStatusDir, s.vtepStatusDir, s.mlagStatus);
  }

  if (primary || secondary) {
    // The remote MACs cross in both directions whatever the role; what the peer sent is handed
    // in after construction, once, since the received table is never replaced.
    if (!c.remoteHostTableSm()) {
      auto sm = c.remoteHostTableSmIs(s.sentP2pHostTable, s.mlagHostTable, s.bridgingConfig, s.bridgingStatus,
                                      s.vxlanFdbStatus, s.mlagProtoStatus, s.mlagStatus, s.controllerStatusBaseDir,
                                      s.vtiStatusDir);
      sm->recvP2pHostTableIs(s.recvP2pHostTable);
    }
    // Active ARP both ways. Towards the peer the far end is the peer: its capability and what it
    // holds are what it sends. Towards this switch's store the far end is this switch: its own
    // table says both.
    c.activeArpCorestateToP2pSmIs(s.vtiStatusDir, s.l2VpnConfig, s.activeArpConfig, s.corestateActiveArp,
                                  s.sentActiveArp, s.recvActiveArp, s.recvActiveArp, s.recvVxStatus,
                                  Brix::String("corestateToP2p"));
    c.activeArpP2pToCorestateSmIs(s.vtiStatusDir, s.l2VpnConfig, s.activeArpConfig, s.recvActiveArp, s.peerActiveArp,
                                  s.corestateActiveArp, s.corestateActiveArp, s.sentVxStatus,
                                  Brix::String("p2pToCorestate"));
    // This switch's flood lists go to the peer in both forms; of what the peer sends, the form
    // the peer declares (its sdeFloodListCapable) fills this switch's sdeOutput.
    c.vcsSdeCorestateToP2pSmIs(s.sdeInput, s.sentSde, Brix::String("vcsSdeCorestateToP2p"));
    c.vcsSdeCorestateToBumStatusP2pSmIs(s.sdeInput, s.sentBumStatus);
    c.floodListInputSelectorSmIs(s.recvVxStatus, s.recvBumStatus, s.recvSde, s.sdeOutput,
                                 Brix::String("floodListInput"));
    c.scheduledMlagPeerArpSyncSmIs(s.sentVxStatus, s.recvVxStatus, s.localVxStatus);
  } else {
    (void)c.remoteHostTableSmDel();
    (void)c.activeArpP2pToCorestateSmDel();
    (void)c.activeArpCorestateToP2pSmDel();
    (void)c.vcsSdeCorestateToP2pSmDel();
    (void)c.vcsSdeCorestateToBumStatusP2pSmDel();
    (void)c.floodListInputSelectorSmDel();
    (void)c.scheduledMlagPeerArpSyncSmDel();
  }
}

std::vector<std::string_view> const& containerChildNames() {
  static std::vector<std::string_view> const names = {
      "remoteHostTableSm",
      "primarySm",
      "secondarySm",
      "activeArpP2pToCorestateSm",
      "activeArpCorestateToP2pSm",
      "vcsSdeCorestateToP2pSm",
      "vcsSdeCorestateToBumStatusP2pSm",
      "floodListInputSelectorSm",
      "scheduledMlagPeerArpSyncSm",
  };
  return names;
}

std::vector<std::pair<std::string_view, std::string_view>> containerChildren(MlagVxlan::SmContainer const& c) {
  std::vector<std::pair<std::string_view, std::string_view>> out;
  auto add = [&](std::string_view name, auto const& child) {
    if (child) out.emplace_back(name, child->typeData());
  };
  add("remoteHostTableSm", c.remoteHostTableSm());
  add("primarySm", c.primarySm());
  add("secondarySm", c.secondarySm());
  add("activeArpP2pToCorestateSm", c.activeArpP2pToCorestateSm());
  add("activeArpCorestateToP2pSm", c.activeArpCorestateToP2pSm());
  add("vcsSdeCorestateToP2pSm", c.vcsSdeCorestateToP2pSm());
  add("vcsSdeCorestateToBumStatusP2pSm", c.vcsSdeCorestateToBumStatusP2pSm());
  add("floodListInputSelectorSm", c.floodListInputSelectorSm());
  add("scheduledMlagPeerArpSyncSm", c.scheduledMlagPeerArpSyncSm());
  return out;
}

}  // namespace Sim
