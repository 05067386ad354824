// The simulated peer link: what crosses, the delay, a cut and a restore, and the role changes
// of the hosting plug-in.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Dump.h"
#include "Pair.h"
#include "Vxlan/Trace.h"
#include "runtime/Node.h"
#include "trace/TextTrace.h"
#include "vxlan/PublicationRecorder.h"

namespace {

using TestSupport::PublicationRecorder;
using Field = Mlag::VxlanStatus::Field;

Vxlan::VniVtiPair key(std::uint32_t vni) { return Vxlan::VniVtiPair(Vxlan::VniExt(vni), Vxlan1); }

void mapVlan(Sim::Switch& s, std::uint16_t vlan, std::uint32_t vni, char const* source = "static") {
  s.vtiStatusDir->vtiStatusIs(Vxlan1)->extendedVlanToVniMapIs(
      Bridging::ExtendedVlanId(vlan), Vxlan::VniSourcePair(Vxlan1, source, Vxlan::VniExtOrNone(vni)));
}

// A primary and a secondary, each with Vxlan1 and a VTEP address; A maps VLANs 10 and 20.
void formPair(Sim::Pair& p, bool multiVtep = false) {
  p.a.mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  p.b.mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  p.a.vtiStatusDir->vtiStatusIs(Vxlan1)->localVtepAddrIs(Lanx::IpAddr(10, 0, 0, 1));
  p.b.vtiStatusDir->vtiStatusIs(Vxlan1)->localVtepAddrIs(Lanx::IpAddr(10, 0, 0, 2));
  if (multiVtep) {
    p.a.vtiStatusDir->vtiStatus(Vxlan1)->mlagVtepAddrIs(Lanx::IpAddr(10, 0, 0, 11));
    p.b.vtiStatusDir->vtiStatus(Vxlan1)->mlagVtepAddrIs(Lanx::IpAddr(10, 0, 0, 12));
  }
  mapVlan(p.a, 10, 10010);
  mapVlan(p.a, 20, 10020);
  p.settle();
}

bool peerLinkDownSeen(Sim::Switch const& s) {
  return s.mlagStatus->peerLinkKnown() != 0 && (s.mlagStatus->peerLinkDownFlag() & 1) != 0;
}

TEST(PairTest, PublishedStateCrossesAndIsApplied) {
  Sim::Pair p;
  formPair(p);
  EXPECT_EQ(p.b.recvVxStatus->vniVtiToDynVlanMap(key(10010)), Bridging::ExtendedVlanId(10));
  EXPECT_EQ(p.b.localVxStatus->vniVtiToDynVlanMap(key(10020)), Bridging::ExtendedVlanId(20));
  EXPECT_EQ(p.b.localVxStatus->vtepTypeAddr(Vxlan::VtepType::localVtep), Lanx::IpAddr(10, 0, 0, 1));
  EXPECT_EQ(p.a.localVxStatus->vtepTypeAddr(Vxlan::VtepType::localVtep), Lanx::IpAddr(10, 0, 0, 2));
  // Equal entities on both ends: the mirror carries every attribute, not a chosen few.
  EXPECT_TRUE(*p.a.sentVxStatus == *p.b.recvVxStatus);
  EXPECT_TRUE(*p.b.sentVxStatus == *p.a.recvVxStatus);

  // The host table crosses the same way, by the same mirror.
  MlagP2p::HostEntryKey hk(10, Lanx::EthAddr(0, 0, 1));
  MlagP2p::HostEntry he;
  he.keyIs(hk);
  p.a.sentP2pHostTable->hostEntryIs(he);
  p.settle();
  EXPECT_TRUE(p.b.recvP2pHostTable->hostEntryHas(hk));
  EXPECT_FALSE(p.a.recvP2pHostTable->hostEntryHas(hk));
}

TEST(PairTest, PeerLinkCutWithdrawsAndRestoreResynchronisesByDifference) {
  Sim::Pair p;
  formPair(p);
  Mlag::Status const& statusB = *p.b.mlagStatus;

  p.linkUpIs(false);
  p.settle();
  for (Sim::Switch const* s : {&p.a, &p.b}) {
    EXPECT_TRUE(peerLinkDownSeen(*s)) << s->name();
    EXPECT_FALSE(s->mlagProtoStatus->peerMonotonicOffsetValid()) << s->name();
  }
  // The peer's addresses are withdrawn; what was received and what it made stay.
  EXPECT_EQ(p.b.localVxStatus->vtepTypeAddrCount(), 0u);
  EXPECT_EQ(p.b.recvVxStatus->vtepTypeAddrCount(), 1u);
  EXPECT_EQ(p.b.localVxStatus->vniVtiToDynVlanMapCount(), 2u);
  // A cut is no change of role.
  EXPECT_EQ(statusB.mlagState(), Mlag::MlagState::secondary);
  EXPECT_TRUE(p.b.container()->secondarySm());

  // While cut, nothing crosses.
  mapVlan(p.a, 30, 10030);
  p.a.vtiStatusDir->vtiStatus(Vxlan1)->extendedVlanToVniMapDel(Bridging::ExtendedVlanId(20));
  p.settle();
  EXPECT_FALSE(p.b.recvVxStatus->vniVtiToDynVlanMapHas(key(10030)));
  EXPECT_TRUE(p.b.recvVxStatus->vniVtiToDynVlanMapHas(key(10020)));

  PublicationRecorder recv(*p.b.recvVxStatus);
  PublicationRecorder local(*p.b.localVxStatus);
  p.linkUpIs(true);
  p.settle();
  EXPECT_FALSE(peerLinkDownSeen(p.a));
  EXPECT_FALSE(peerLinkDownSeen(p.b));
  EXPECT_TRUE(p.b.mlagProtoStatus->peerMonotonicOffsetValid());
  EXPECT_TRUE(*p.a.sentVxStatus == *p.b.recvVxStatus);
  EXPECT_EQ(p.b.localVxStatus->vniVtiToDynVlanMap(key(10030)), Bridging::ExtendedVlanId(30));
  EXPECT_FALSE(p.b.localVxStatus->vniVtiToDynVlanMapHas(key(10020)));
  EXPECT_EQ(p.b.localVxStatus->vtepTypeAddr(Vxlan::VtepType::localVtep), Lanx::IpAddr(10, 0, 0, 1));
  // Only the differences were written: VLAN 30 in, VLAN 20 out, in both maps. A clear-and-copy
  // would have retracted and re-added VLAN 10 as well.
  EXPECT_EQ(recv.count(Field::vniVtiToDynVlanMapField), 2u);
  EXPECT_EQ(recv.count(Field::vniToDynVlanMapField), 2u);
  EXPECT_EQ(recv.count(Field::vtepTypeAddrField), 0u);
  EXPECT_EQ(recv.count(Field::sharedDynVlanField), 0u);
  EXPECT_EQ(local.count(Field::vniVtiToDynVlanMapField), 2u);
  EXPECT_EQ(local.count(Field::vtepTypeAddrField), 1u);  // the peer's address, back again
}

TEST(PairTest, ARestoredLinkCountsAsUpOnlyOnceThePeersStateHasArrived) {
  Sim::Pair p;
  formPair(p);
  p.delayIs(0.5);
  p.linkUpIs(false);
  mapVlan(p.a, 30, 10030);
  p.settle();

  std::vector<std::string> order;
  PublicationRecorder recv(*p.b.recvVxStatus, [&](auto const&) { order.push_back("recv"); });
  PublicationRecorder proto(*p.b.mlagProtoStatus, [&](auto const& pub) {
    if (pub.field == Mlag::ProtoStatus::peerMonotonicOffsetValidField) order.push_back("valid");
  });
  PublicationRecorder status(*p.b.mlagStatus, [&](auto const& pub) {
    if (pub.field == Mlag::Status::peerLinkDownFlagField) order.push_back("up");
  });
  Brix::Duration const restoredAt = p.now();
  p.linkUpIs(true);
  p.advanceTo(restoredAt + 0.49);
  EXPECT_TRUE(order.empty());
  EXPECT_TRUE(peerLinkDownSeen(p.b));
  p.advanceTo(restoredAt + 0.5);
  EXPECT_EQ(order, (std::vector<std::string>{"recv", "recv", "up", "valid"}));
  EXPECT_EQ(p.b.localVxStatus->vniVtiToDynVlanMap(key(10030)), Bridging::ExtendedVlanId(30));
}

TEST(PairTest, TheDelayHoldsChangesAndACutDropsWhatIsInFlight) {
  Sim::Pair p;
  formPair(p);
  p.delayIs(0.3);
  Brix::Duration const t0 = p.now();
  mapVlan(p.a, 30, 10030);
  p.advanceTo(t0 + 0.29);
  EXPECT_FALSE(p.b.recvVxStatus->vniVtiToDynVlanMapHas(key(10030)));
  p.advanceTo(t0 + 0.3);
  EXPECT_TRUE(p.b.localVxStatus->vniVtiToDynVlanMapHas(key(10030)));

  mapVlan(p.a, 40, 10040);
  p.advanceTo(t0 + 0.4);
  p.linkUpIs(false);
  p.advanceTo(t0 + 2.0);
  EXPECT_FALSE(p.b.recvVxStatus->vniVtiToDynVlanMapHas(key(10040)));
  EXPECT_DOUBLE_EQ(p.now(), t0 + 2.0);
}

TEST(PairTest, TheOldRoleIsCleanedUpBeforeTheNewRoleFirstRuns) {
  Sim::Pair p;
  formPair(p, true);
  mapVlan(p.a, 80, 10080, "evpn");  // shared from either role
  p.settle();
  Vok::TraceCapture capture;
  auto* handle = MlagVxlan::_defaultTraceHandle();
  std::uint32_t const saved = handle->levelMask();
  handle->levelMaskIs(1u << 5);
  PublicationRecorder container(*p.a.container());

  p.a.mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  handle->levelMaskIs(saved);

  auto texts = capture.texts();
  auto at = [&](std::string const& t) { return std::find(texts.begin(), texts.end(), t) - texts.begin(); };
  EXPECT_LT(at("PrimarySm::doCleanup() return"), at("SecondarySm::handleInitialized()"));
  EXPECT_LT(at("SecondarySm::handleInitialized()"), static_cast<std::ptrdiff_t>(texts.size()));
  ASSERT_EQ(container.publications().size(), 2u);
  EXPECT_EQ(container.publications()[0].field, MlagVxlan::SmContainer::primarySmField);
  EXPECT_EQ(container.publications()[1].field, MlagVxlan::SmContainer::secondarySmField);

  // With multi-VTEP both roles publish and apply, and each cleans both maps: only the old
  // role going first leaves the new one's output standing.
  p.b.mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  p.settle();
  EXPECT_EQ(p.a.sentVxStatus->vniVtiToDynVlanMap(key(10080)), Bridging::ExtendedVlanId(80));
  EXPECT_EQ(p.a.localVxStatus->vtepTypeAddr(Vxlan::VtepType::mlagVtep), Lanx::IpAddr(10, 0, 0, 12));
  EXPECT_EQ(p.b.localVxStatus->vniVtiToDynVlanMap(key(10080)), Bridging::ExtendedVlanId(80));
  EXPECT_FALSE(p.b.localVxStatus->vniVtiToDynVlanMapHas(key(10010))) << "a secondary keeps static mappings";
  EXPECT_EQ(p.b.localVxStatus->vtepTypeAddr(Vxlan::VtepType::mlagVtep), Lanx::IpAddr(10, 0, 0, 11));
}

TEST(PairTest, TheRoleChangesBeforeAnyOtherReaderHearsOfIt) {
  Sim::Pair p;
  formPair(p);
  bool secondaryInPlace = false;
  PublicationRecorder reader(*p.a.mlagStatus, [&](auto const& pub) {
    if (pub.field == Mlag::Status::mlagStateField) {
      secondaryInPlace = p.a.container()->secondarySm() && !p.a.container()->primarySm();
    }
  });
  p.a.mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  EXPECT_TRUE(secondaryInPlace);
}

TEST(PairTest, ChildrenFollowTheMlagStateAndNothingElse) {
  Sim::Pair p;
  auto const& c = *p.a.container();
  EXPECT_FALSE(c.primarySm() || c.secondarySm() || c.scheduledMlagPeerArpSyncSm());

  p.a.mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  MlagVxlan::PrimarySm* primary = c.primarySm().get();
  ASSERT_NE(primary, nullptr);
  EXPECT_TRUE(c.scheduledMlagPeerArpSyncSm());
  // Other changes of the status, or running the plug-in again, rebuild nothing.
  p.a.mlagStatus->peerMacAddrIs(Lanx::EthAddr(1, 2, 3));
  p.a.plugInRun();
  p.linkUpIs(false);
  EXPECT_EQ(c.primarySm().get(), primary);

  for (auto state : {Mlag::MlagState::negotiating, Mlag::MlagState::inactive, Mlag::MlagState::disabled}) {
    p.a.mlagStatus->mlagStateIs(Mlag::MlagState::primary);
    p.a.mlagStatus->mlagStateIs(state);
    EXPECT_FALSE(c.primarySm() || c.secondarySm() || c.scheduledMlagPeerArpSyncSm()) << Sim::text(state);
  }
}

TEST(PairTest, APairLeavesNothingBehind) {
  std::int64_t const before = Brix::Node::liveCount();
  {
    Sim::Pair p;
    formPair(p, true);
    p.delayIs(1.0);
    mapVlan(p.a, 30, 10030);  // still in flight at the end
    p.b.mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  }
  EXPECT_EQ(Brix::Node::liveCount(), before);
}

}  // namespace
