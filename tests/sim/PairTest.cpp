// The simulated peer link and the hosting plug-in, where a scenario cannot look: what a restore
// writes and in what order, and the order of a role change. What crosses, the delay and a cut
// are shown by the examples.
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

// While cut, A maps VLAN 30 and drops VLAN 20. On restore only the differences are written (a
// clear-and-copy would retract and re-add VLAN 10 too), and the link counts as up only once they
// are in place: the flag, then the clock.
TEST(PairTest, RestoreResynchronisesByDifferenceBeforeTheLinkCountsAsUp) {
  Sim::Pair p;
  formPair(p);
  p.delayIs(0.5);
  p.linkUpIs(false);
  mapVlan(p.a, 30, 10030);
  p.a.vtiStatusDir->vtiStatus(Vxlan1)->extendedVlanToVniMapDel(Bridging::ExtendedVlanId(20));
  p.settle();

  std::vector<std::string> order;
  PublicationRecorder recv(*p.b.recvVxStatus, [&](auto const&) { order.push_back("recv"); });
  PublicationRecorder local(*p.b.localVxStatus);
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
  p.advanceTo(restoredAt + 0.5);
  EXPECT_EQ(order, (std::vector<std::string>{"recv", "recv", "recv", "recv", "up", "valid"}));
  EXPECT_EQ(recv.count(Field::vniVtiToDynVlanMapField), 2u);
  EXPECT_EQ(recv.count(Field::vniToDynVlanMapField), 2u);
  EXPECT_EQ(local.count(Field::vniVtiToDynVlanMapField), 2u);
  EXPECT_EQ(local.count(Field::vtepTypeAddrField), 1u);  // the peer's address, back again
  EXPECT_TRUE(*p.a.sentVxStatus == *p.b.recvVxStatus);
}

TEST(PairTest, TheOldRoleIsCleanedUpBeforeTheNewRoleFirstRuns) {
  Sim::Pair p;
  formPair(p, true);
  Vok::TraceCapture capture;
  auto* handle = MlagVxlan::_defaultTraceHandle();
  std::uint32_t const saved = handle->levelMask();
  handle->levelMaskIs(1u << 5);
  PublicationRecorder container(*p.a.container());
  bool secondaryInPlace = false;
  PublicationRecorder reader(*p.a.mlagStatus, [&](auto const& pub) {
    if (pub.field == Mlag::Status::mlagStateField) {
      secondaryInPlace = p.a.container()->secondarySm() && !p.a.container()->primarySm();
    }
  });

  p.a.mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  handle->levelMaskIs(saved);

  EXPECT_TRUE(secondaryInPlace) << "the role changes before any other reader hears of it";
  auto texts = capture.texts();
  auto at = [&](std::string const& t) { return std::find(texts.begin(), texts.end(), t) - texts.begin(); };
  EXPECT_LT(at("PrimarySm::doCleanup() return"), at("SecondarySm::handleInitialized()"));
  EXPECT_LT(at("SecondarySm::handleInitialized()"), static_cast<std::ptrdiff_t>(texts.size()));
  ASSERT_EQ(container.publications().size(), 2u);
  EXPECT_EQ(container.publications()[0].field, MlagVxlan::SmContainer::primarySmField);
  EXPECT_EQ(container.publications()[1].field, MlagVxlan::SmContainer::secondarySmField);
}

TEST(PairTest, ChildrenFollowTheMlagStateAndNothingElse) {
  Sim::Pair p;
  auto const& c = *p.a.container();
  p.a.mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  MlagVxlan::PrimarySm* primary = c.primarySm().get();
  ASSERT_NE(primary, nullptr);
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
