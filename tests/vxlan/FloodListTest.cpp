// Flood lists: the replica of a source directory, the BUM status made into source directory form
// and back, the choice of input road, and the container's three flood-list children.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "Vxlan/SmContainer.h"
#include "support/RingLogDir.h"
#include "trace/RingLogReader.h"
#include "vxlan/FloodListTestSupport.h"
#include "vxlan/PublicationRecorder.h"
#include "vxlan/VlanVniTestSupport.h"

namespace {

using namespace FloodListTest;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

MLAGVXLAN_TEST_RINGLOGDIR();

template <class T>
std::string str(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

class FloodList : public VlanVniTest::LiveNodesTest {
 protected:
  void releaseAll() override { sdeIn = sdeOut = nullptr, bumIn = bumOut = nullptr, status = nullptr; }
  // Index of the first captured line equal to `line`, or -1.
  static long indexOf(std::vector<std::string> const& lines, std::string const& line) {
    auto it = std::find(lines.begin(), lines.end(), line);
    return it == lines.end() ? -1 : it - lines.begin();
  }

  Brix::Ptr<L2Rib::SourceDirEntry> sdeIn = Brix::newNode<L2Rib::SourceDirEntry>(),
                                   sdeOut = Brix::newNode<L2Rib::SourceDirEntry>();
  Brix::Ptr<Vxlan::BumStatus> bumIn = Brix::newNode<Vxlan::BumStatus>(), bumOut = Brix::newNode<Vxlan::BumStatus>();
  Brix::Ptr<Mlag::VxlanStatus> status = Brix::newNode<Mlag::VxlanStatus>();
  VlanVniTest::TraceOn trace;
};

TEST_F(FloodList, ReplicaRemovesWhatTheInputLacksAtEachLevelAndFollowsEveryChange) {
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.1"), true);
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.2"), false);
  floodSet(*sdeIn, 10)->floodSetTypeIs(L2Rib::FloodSetType::any);
  sdeIn->vlanFloodSetIs(Bridging::VlanId(30));
  floodSet(*sdeOut, 20);                                     // a stale VLAN
  floodSet(*sdeOut, 10, otherMac);                           // a stale MAC
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.9"), true);  // a stale destination
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.2"), true);  // false in the input
  auto sm = MlagVxlan::sourceDirEntryP2pSmFactory(sdeIn, sdeOut, "sde");
  EXPECT_EQ(text(*sdeOut), "10 00:00:00:00:00:00 any: 10.0.0.1\n30 -\n");
  auto lines = trace.take();
  EXPECT_THAT(lines, Contains(" Del stale " + str(otherMac)));
  EXPECT_THAT(lines, Contains(" Del stale " + str(dest("10.0.0.9"))));
  EXPECT_THAT(lines, Contains(" (sde,10,00:00:00:00:00:00)::handleDest Del " + str(dest("10.0.0.2"))))
      << "a false destination is no stale one";

  floodSet(*sdeIn, 10)->floodSetTypeIs(L2Rib::FloodSetType::all);
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.2"), true);
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.1"), false);
  floodSet(*sdeIn, 40, otherMac)->destSetIs(foreignDest("10.0.0.4"), true);
  sdeIn->vlanFloodSetDel(Bridging::VlanId(30));
  EXPECT_EQ(text(*sdeOut),
            "10 00:00:00:00:00:00 all: 10.0.0.2\n40 0a:00:00:00:00:01 unknown: " + str(foreignDest("10.0.0.4")) + "\n");
  sdeIn->vlanFloodSetIs(Bridging::VlanId(10))->floodSetDel(zeroMac);
  EXPECT_EQ(text(*sdeOut), "10 -\n40 0a:00:00:00:00:01 unknown: " + str(foreignDest("10.0.0.4")) + "\n");
  EXPECT_EQ(sm->vlanFloodSetInput(Bridging::VlanId(10))->floodSetInputCount(), 0u);
  sm = nullptr;
  EXPECT_EQ(text(*sdeOut), "") << "what the replica copied does not outlive it";
}

TEST_F(FloodList, BumStatusBecomesFloodSetsAndEmptiedLevelsGo) {
  list(*bumIn, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 1), true);
  list(*bumIn, 10)->remoteVtepAddr6Is(Lanx::Ip6Addr::parse("2001:db8::1"), true);
  list(*bumIn, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 2), false);
  list(*bumIn, 10, otherMac)->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::any);
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.2"), true);  // false in the list: goes by its own step
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.9"), true);  // unknown to the list
  floodSet(*sdeOut, 20, otherMac);
  auto sm = MlagVxlan::bumStatusToSdeSmFactory(bumIn, sdeOut, "bum");
  EXPECT_EQ(text(*sdeOut), "10 00:00:00:00:00:00 all: 10.0.0.1 2001:db8::1\n10 0a:00:00:00:00:01 unknown:\n")
      << "a list without addresses is a flood set without destinations, its type not yet set";
  auto lines = trace.take();
  EXPECT_THAT(lines, Contains(" Del stale flood set " + str(otherMac)));
  EXPECT_THAT(lines, Contains(" Del stale vlan flood set 20"));
  EXPECT_THAT(lines, Contains(" Del stale dest set " + str(dest("10.0.0.9"))));
  EXPECT_THAT(lines, Not(Contains(" Del stale dest set " + str(dest("10.0.0.2")))));

  list(*bumIn, 10)->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::any);
  EXPECT_THAT(trace.take(), Contains(" BUM VTEP Ip List any"));
  list(*bumIn, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 1), false);  // false is as absent
  list(*bumIn, 10)->remoteVtepAddr6Del(Lanx::Ip6Addr::parse("2001:db8::1"));
  EXPECT_EQ(text(*sdeOut), "10 0a:00:00:00:00:01 unknown:\n") << "the last destination takes its flood set along";
  list(*bumIn, 10, otherMac)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 3), true);
  list(*bumIn, 10, otherMac)->remoteVtepAddrDel(Lanx::IpAddr(10, 0, 0, 3));
  EXPECT_EQ(text(*sdeOut), "") << "and the last flood set its VLAN, although both lists remain";
  list(*bumIn, 10)->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::all);
  EXPECT_EQ(text(*sdeOut), "10 00:00:00:00:00:00 all:\n") << "a type change makes the flood set again";
  trace.take();
  sm->handleBumVtepList(Vxlan::MacVlanPair(otherMac, Bridging::VlanId(99)));
  EXPECT_THAT(trace.take(), IsEmpty()) << "a removal where the output has no such VLAN";
  bumIn->bumVtepListDel(Vxlan::MacVlanPair(zeroMac, Bridging::VlanId(10)));
  EXPECT_EQ(text(*sdeOut), "");
}

TEST_F(FloodList, SourceDirectoryNarrowsToTheZeroMacsIpv4Addresses) {
  sdeIn->sourceInitializedIs(true);
  auto zero = floodSet(*sdeIn, 10);
  zero->floodSetTypeIs(L2Rib::FloodSetType::any);
  zero->destSetIs(dest("10.0.0.1"), true);
  zero->destSetIs(foreignDest("10.0.0.2"), false);  // present whatever its value and its other fields
  zero->destSetIs(dest("2001:db8::1"), true);
  floodSet(*sdeIn, 10, otherMac)->destSetIs(dest("10.0.0.5"), true);
  floodSet(*sdeIn, 20, otherMac);
  list(*bumOut, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 9), true);  // stale
  list(*bumOut, 30, otherMac);                                           // never written here
  auto sm = MlagVxlan::sdeToBumStatusSmFactory(sdeIn, bumOut);
  std::string const built = "mode headend\n00:00:00:00:00:00/10 any: 10.0.0.1 10.0.0.2\n0a:00:00:00:00:01/30 all:\n";
  EXPECT_EQ(text(*bumOut), built);
  auto lines = trace.take();
  EXPECT_THAT(lines, Contains(" Skip non-zero MAC " + str(otherMac)));
  EXPECT_THAT(lines, Contains(" Skipping non IPv4 address 2001:db8::1"));
  EXPECT_THAT(lines, Contains(" Deleting addr 10.0.0.9"));
  EXPECT_EQ(sm->vfsToBumStatusSm(Bridging::VlanId(20))->fsToBumStatusSmCount(), 0u);

  zero->floodSetTypeIs(L2Rib::FloodSetType::unknown);
  EXPECT_EQ(text(*bumOut), built) << "a type other than all and any leaves the list's type";
  sdeIn->vlanFloodSetDel(Bridging::VlanId(10));
  EXPECT_EQ(text(*bumOut), "mode headend\n0a:00:00:00:00:01/30 all:\n");
  // A VLAN made again is a new input object: its child is replaced, not refused.
  MlagVxlan::VfsToBumStatusSm::Ptr before(sm->vfsToBumStatusSm(Bridging::VlanId(20)));
  sdeIn->vlanFloodSetIs(Bridging::VlanId(20), Brix::newNode<L2Rib::VlanFloodSet>(Bridging::VlanId(20)));
  EXPECT_NE(sm->vfsToBumStatusSm(Bridging::VlanId(20)), before.get());
  before = nullptr;
  floodSet(*sdeIn, 20)->destSetIs(dest("10.0.0.7"), true);
  std::string const rebuilt = "mode headend\n00:00:00:00:00:00/20 all: 10.0.0.7\n";
  EXPECT_EQ(text(*bumOut), "mode headend\n00:00:00:00:00:00/20 all: 10.0.0.7\n0a:00:00:00:00:01/30 all:\n");

  trace.take();
  sdeIn->sourceInitializedIs(false);
  EXPECT_EQ(text(*bumOut), "mode none\n");
  EXPECT_EQ(sm->vfsToBumStatusSmCount(), 0u);
  EXPECT_THAT(trace.take(), Contains(" Clearing BumStatus as VCS SDE is uninitialized"));
  sdeIn->vlanFloodSetIs(Bridging::VlanId(50));
  EXPECT_THAT(trace.take(), ElementsAre("SdeToBumStatusSm::handleVlanFloodSet vlan 50"));
  sdeIn->sourceInitializedIs(true);
  EXPECT_EQ(text(*bumOut), rebuilt);
  sm = nullptr;
  EXPECT_EQ(text(*bumOut), "mode none\n");
}

#ifndef NDEBUG
TEST_F(FloodList, ANonVxlanDestinationIsAProgrammingError) {
  sdeIn->sourceInitializedIs(true);
  auto sm = MlagVxlan::sdeToBumStatusSmFactory(sdeIn, bumOut);
  L2Rib::Dest const intf(L2Rib::DestId(1), L2Rib::DestDataIntf(::Vxlan1));
  EXPECT_DEATH(floodSet(*sdeIn, 10)->destSetIs(intf, true), "dest.destType\\(\\) == L2Rib::destTypeVxlan\\(\\)");
}
#endif

// IPv4 addresses of the zero MAC come back as they went, whatever the list type; IPv6 ones do
// not cross back, and later changes take the same road.
TEST_F(FloodList, BumStatusRoundTripsThroughTheSourceDirectory) {
  for (auto type : {Vxlan::BumVtepIpListType::all, Vxlan::BumVtepIpListType::any}) {
    auto in = list(*bumIn, 10);
    in->bumVtepIpListTypeIs(type);
    in->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 1), true);
    in->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 2), true);
    in->remoteVtepAddr6Is(Lanx::Ip6Addr::parse("2001:db8::1"), true);
    sdeOut->sourceInitializedIs(true);
    auto toSde = MlagVxlan::bumStatusToSdeSmFactory(bumIn, sdeOut, "rt");
    auto back = MlagVxlan::sdeToBumStatusSmFactory(sdeOut, bumOut);
    std::string const t = str(type);
    EXPECT_EQ(text(*bumOut), "mode headend\n00:00:00:00:00:00/10 " + t + ": 10.0.0.1 10.0.0.2\n");
    in->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 3), true);
    in->remoteVtepAddrDel(Lanx::IpAddr(10, 0, 0, 1));
    EXPECT_EQ(text(*bumOut), "mode headend\n00:00:00:00:00:00/10 " + t + ": 10.0.0.2 10.0.0.3\n");
    back = nullptr;
    toSde = nullptr;
    bumIn->bumVtepListDelAll();
  }
}

TEST_F(FloodList, SelectorFlagFlipsEmptyAndRefillTheOutputFromTheOtherRoad) {
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.1"), true);
  list(*bumIn, 20)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 2), true);
  std::string const bySde = "10 00:00:00:00:00:00 unknown: 10.0.0.1\n", byBum = "20 00:00:00:00:00:00 all: 10.0.0.2\n";
  auto sel = MlagVxlan::floodListInputSelectorSmFactory(status, bumIn, sdeIn, sdeOut, "sel");
  EXPECT_EQ(text(*sdeOut), byBum);
  sdeIn->vlanFloodSetIs(Bridging::VlanId(11));
  EXPECT_EQ(text(*sdeOut), byBum) << "on the legacy road the source directory input does nothing";
  for (bool flag : {true, false, true}) {
    trace.take();
    status->sdeFloodListCapableIs(flag);
    EXPECT_EQ(text(*sdeOut), flag ? bySde + "11 -\n" : byBum);
    EXPECT_EQ(bool(sel->sdeInputSm()), flag);
    EXPECT_NE(bool(sel->legacyBumStatusInputSm()), flag);
    // The old road's output is gone before the new road's first run.
    auto lines = trace.take();
    long cleanup =
        indexOf(lines, flag ? "BumStatusToSdeSm(sel)::doCleanup()" : "SourceDirEntryP2pSm(sel)::doCleanup()");
    long firstRun = indexOf(lines, flag ? "SourceDirEntryP2pSm(sel)::VokVlanFloodSetInput(10)::handleFloodSet()"
                                        : "BumStatusToSdeSm(sel)::handleBumVtepList()");
    EXPECT_TRUE(cleanup >= 0 && cleanup < firstRun) << cleanup << " " << firstRun;
  }
  list(*bumIn, 21)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 3), true);
  EXPECT_EQ(text(*sdeOut), bySde + "11 -\n") << "on the source directory road the BUM status does nothing";

  auto* child = sel->sdeInputSm().get();
  TestSupport::PublicationRecorder outputChanges(*sdeOut);
  sel->selectInputSource();
  EXPECT_EQ(sel->sdeInputSm().get(), child) << "an unchanged flag keeps the child";
  EXPECT_THAT(outputChanges.publications(), IsEmpty());
  sel = nullptr;
  EXPECT_EQ(text(*sdeOut), "");
}

TEST_F(FloodList, ContainerEndsTheFloodListChildrenAfterTheRolesAndBeforeArpSync) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  sdeIn->sourceInitializedIs(true);
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.1"), true);
  auto copy = Brix::newNode<L2Rib::SourceDirEntry>();
  EXPECT_EQ(c->vcsSdeCorestateToP2pSmDel(), nullptr);
  auto p2p = c->vcsSdeCorestateToP2pSmIs(sdeIn, copy, "p2p");
  EXPECT_EQ(c->vcsSdeCorestateToP2pSmIs(sdeIn, copy, "p2p"), p2p);
  p2p = nullptr;
  c->vcsSdeCorestateToBumStatusP2pSmIs(sdeIn, bumOut);
  c->floodListInputSelectorSmIs(status, bumIn, sdeIn, sdeOut, "sel");
  c->scheduledMlagPeerArpSyncSmIs(status, status, Brix::newNode<Mlag::VxlanStatus>());
  EXPECT_EQ(text(*copy), "10 00:00:00:00:00:00 unknown: 10.0.0.1\n");
  EXPECT_EQ(text(*bumOut), "mode headend\n00:00:00:00:00:00/10 all: 10.0.0.1\n");

  // The ring file holds the destinations as their text.
  auto decoded = RingLog::decodeFile(MlagVxlan::vxlanRlHandle()->fileName());
  EXPECT_TRUE(decoded.ok());
  std::vector<std::string> texts;
  for (auto const& r : decoded.records) texts.push_back(r.text);
  EXPECT_THAT(texts, Contains(" (p2p,10,00:00:00:00:00:00)::handleDest Add " + str(dest("10.0.0.1"))));

  std::vector<Brix::FieldId> ended;
  TestSupport::PublicationRecorder rec(*c, [&](auto const& p) { ended.push_back(p.field); });
  c = nullptr;
  using C = MlagVxlan::SmContainer;
  EXPECT_THAT(ended, ElementsAre(C::vcsSdeCorestateToP2pSmField, C::vcsSdeCorestateToBumStatusP2pSmField,
                                 C::floodListInputSelectorSmField, C::scheduledMlagPeerArpSyncSmField));
  EXPECT_EQ(text(*copy), "");
  EXPECT_EQ(text(*bumOut), "mode none\n");
}

}  // namespace
