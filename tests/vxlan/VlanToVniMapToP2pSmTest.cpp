// The publication of a VTI's VLAN-to-VNI map to the peer: what goes into sentVxStatus, in what
// order stale VNIs and VLANs are retired, and what the shadow map remembers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Vxlan/VlanToVniMapToP2pSm.h"
#include "runtime/Exceptions.h"
#include "vxlan/VlanVniTestSupport.h"

namespace VlanVniTest {
namespace {

using MlagVxlan::VlanToVniMapToP2pSm;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

constexpr auto primary = Mlag::MlagState::primary;
constexpr auto secondary = Mlag::MlagState::secondary;

class VlanToVniMapToP2pSmTest : public LiveNodesTest {
 protected:
  void releaseAll() override {
    changes.reset();
    sm = sm2 = nullptr;
    sent = nullptr;
    vti = vti2 = nullptr;
  }

  VlanToVniMapToP2pSm::Ptr publisher(Mlag::MlagState state, Lanx::IntfId intf = ::Vxlan1) {
    return MlagVxlan::vlanToVniMapToP2pSmFactory(intf, intf == ::Vxlan1 ? vti : vti2, sent, state);
  }
  void map(std::uint16_t vlan, std::uint32_t vni, std::string_view source = "evpn", std::uint8_t flags = 0) {
    vti->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(vlan), mapping(vni, source, flags));
  }
  void unmap(std::uint16_t vlan) { vti->extendedVlanToVniMapDel(Bridging::ExtendedVlanId(vlan)); }
  Vxlan::VniExtOrNone shadow(std::uint16_t vlan) const {
    return sm->shadowVlanToVniMap(Bridging::ExtendedVlanId(vlan));
  }
  bool hasShadow(std::uint16_t vlan) const { return sm->shadowVlanToVniMapHas(Bridging::ExtendedVlanId(vlan)); }
  MapChanges& record() { return changes.emplace(*sent); }

  Brix::Ptr<Mlag::VxlanStatus> sent = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Vxlan::VtiStatus> vti = Brix::newNode<Vxlan::VtiStatus>(::Vxlan1),
                              vti2 = Brix::newNode<Vxlan::VtiStatus>(vxlan2);
  VlanToVniMapToP2pSm::Ptr sm, sm2;
  std::optional<MapChanges> changes;
};

TEST_F(VlanToVniMapToP2pSmTest, ANewVniForAVlanRetiresTheOldOneFirstEvenWhenUnchanged) {
  map(100, 10);
  sm = publisher(primary);
  TraceOn trace;
  auto& log = record();
  map(100, 20);
  EXPECT_THAT(log.take(), ElementsAre("-vniVti 10/Vx1", "-vni 10", "+vniVti 20/Vx1=100", "+vni 20=100"));
  EXPECT_THAT(trace.take(),
              ElementsAre("VlanToVniMapToP2pSm::handleVlanToVniMap(100)", " Removing stale VNI 10",
                          StartsWith(" isMlagShareable("), " Syncing VLAN (100) to VNI (20) for VTI (Vx1) to peer",
                          "VlanToVniMapToP2pSm::handleVlanToVniMap(100) return"));
  EXPECT_EQ(shadow(100), Vxlan::VniExtOrNone(20));
  // Another field of the pair changes, the VNI stays: the entries go and come back.
  map(100, 20, "evpn", 1);
  EXPECT_THAT(log.take(), ElementsAre("-vniVti 20/Vx1", "-vni 20", "+vniVti 20/Vx1=100", "+vni 20=100"));
}

TEST_F(VlanToVniMapToP2pSmTest, TwoVlansFightingOverOneVni) {
  map(100, 10);
  sm = publisher(primary);
  TraceOn trace;
  // B takes VNI 10 while A still maps to it: the entry becomes B's and A's shadow goes.
  map(200, 10);
  EXPECT_EQ(vniMap(*sent), (VniMap{{10, 200}}));
  EXPECT_FALSE(hasShadow(100));
  EXPECT_THAT(trace.take(), Contains(" Removing stale VLAN 100"));
  // A later event for A: no old VNI in its shadow, B is the stale VLAN, A publishes.
  map(100, 10, "evpn", 1);
  auto lines = trace.take();
  EXPECT_THAT(lines, Not(Contains(StartsWith(" Removing stale VNI"))));
  EXPECT_THAT(lines, Contains(" Removing stale VLAN 200"));
  EXPECT_EQ(vniVtiMap(*sent), (VniVtiMap{{{10, "Vx1"}, 100}}));
  EXPECT_FALSE(hasShadow(200));
  // B's removal finds no shadow entry: A's publication stays.
  unmap(200);
  EXPECT_EQ(vniMap(*sent), (VniMap{{10, 100}}));
}

TEST_F(VlanToVniMapToP2pSmTest, AMappingThatStopsBeingShareableIsWithdrawnButStaysInTheShadow) {
  std::string const mlag = sourceText(Vxlan::VniSource::mlagSource);
  map(100, 10);
  sm = publisher(primary);
  TraceOn trace;
  auto& log = record();
  map(100, 10, mlag);
  EXPECT_THAT(log.take(), ElementsAre("-vniVti 10/Vx1", "-vni 10"));
  EXPECT_THAT(trace.take(), Contains(" Not syncing VLAN (100) to VNI (10) for VTI (Vx1)"));
  EXPECT_EQ(shadow(100), Vxlan::VniExtOrNone(10));
  // The removal deletes once more (nothing left to publish) and forgets the VLAN.
  unmap(100);
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_THAT(trace.take(), ElementsAre("VlanToVniMapToP2pSm::handleVlanToVniMap(100)",
                                        " Deleting VLAN (100) to VNI (10) for VTI (Vx1) from peer",
                                        "VlanToVniMapToP2pSm::handleVlanToVniMap(100) return"));
  EXPECT_FALSE(hasShadow(100));
  // A removal for a VLAN that never was published: entry and return alone.
  map(300, 30, mlag);
  trace.take();
  unmap(300);
  EXPECT_THAT(trace.take(), ElementsAre("VlanToVniMapToP2pSm::handleVlanToVniMap(300)",
                                        "VlanToVniMapToP2pSm::handleVlanToVniMap(300) return"));
}

TEST_F(VlanToVniMapToP2pSmTest, ShareabilityBySourceAndRole) {
  std::string const stat = sourceText(Vxlan::VniSource::staticSource);
  std::string const mlag = sourceText(Vxlan::VniSource::mlagSource);
  TraceOn trace;
  struct Case {
    std::string source;
    Mlag::MlagState state;
    bool shared;
  };
  for (auto const& c : std::vector<Case>{{mlag, primary, false},
                                         {mlag, secondary, false},
                                         {mlag, Mlag::MlagState::disabled, false},
                                         {stat, primary, true},
                                         {stat, secondary, false},
                                         {stat, Mlag::MlagState::negotiating, true},
                                         {sourceText(Vxlan::VniSource::evpnSource), secondary, true},
                                         {"", secondary, true},
                                         {"somethingElse", secondary, true}}) {
    SCOPED_TRACE(c.source + " " + std::string(Mlag::stringValue(c.state)));
    auto pair = mapping(10, c.source);
    trace.take();
    EXPECT_EQ(MlagVxlan::isMlagShareable(pair, c.state), c.shared);
    auto lines = trace.take();
    ASSERT_EQ(lines.size(), 1u);
    // The pair as VNI, interface and source; the state by its name.
    EXPECT_EQ(lines[0], " isMlagShareable((10, Vxlan1, " + c.source + ")," + std::string(Mlag::stringValue(c.state)) +
                            (c.shared ? ") return true" : ") return false"));
    EXPECT_EQ(pair, mapping(10, c.source)) << "the pair is not changed";
  }
}

TEST_F(VlanToVniMapToP2pSmTest, ExtendedVlansAndOtherVtisGoOnlyIntoThePerVtiMap) {
  sm = publisher(primary);
  sm2 = publisher(primary, vxlan2);
  map(5000, 50);
  map(4094, 40);
  vti2->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(100), mapping(60, "evpn", 0, vxlan2));
  vti2->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(200), mapping(40, "evpn", 0, vxlan2));
  EXPECT_EQ(vniVtiMap(*sent),
            (VniVtiMap{{{50, "Vx1"}, 5000}, {{40, "Vx1"}, 4094}, {{60, "Vx2"}, 100}, {{40, "Vx2"}, 200}}));
  EXPECT_EQ(vniMap(*sent), (VniMap{{40, 4094}}));
  // Vxlan2 giving up VNI 40 leaves Vxlan1's entries of the same VNI alone.
  vti2->extendedVlanToVniMapDel(Bridging::ExtendedVlanId(200));
  EXPECT_EQ(vniVtiMap(*sent).count({40, "Vx1"}), 1u);
  EXPECT_EQ(vniMap(*sent), (VniMap{{40, 4094}}));
}

TEST_F(VlanToVniMapToP2pSmTest, AFreshPublisherRemovesWhatAnEarlierOneLeftStaleFirst) {
  map(100, 10);
  map(300, 31);
  sent->vniVtiToDynVlanMapIs(key(10), Bridging::ExtendedVlanId(100));          // current
  sent->vniVtiToDynVlanMapIs(key(20), Bridging::ExtendedVlanId(200));          // VLAN no longer mapped
  sent->vniVtiToDynVlanMapIs(key(30), Bridging::ExtendedVlanId(300));          // VLAN mapped elsewhere
  sent->vniVtiToDynVlanMapIs(key(40, vxlan2), Bridging::ExtendedVlanId(400));  // another publisher's
  for (std::uint32_t vni : {10, 20, 30}) {
    sent->vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni), Bridging::VlanIdOrNone(vni * 10));
  }
  TraceOn trace;
  auto& log = record();
  sm = publisher(primary);
  EXPECT_EQ(vniVtiMap(*sent), (VniVtiMap{{{10, "Vx1"}, 100}, {{31, "Vx1"}, 300}, {{40, "Vx2"}, 400}}));
  EXPECT_EQ(vniMap(*sent), (VniMap{{10, 100}, {31, 300}}));
  // The stale entries go before any mapping is written again.
  auto changed = log.take();
  ASSERT_EQ(changed.size(), 6u);
  EXPECT_THAT(std::vector<std::string>(changed.begin(), changed.begin() + 4),
              UnorderedElementsAre("-vniVti 20/Vx1", "-vni 20", "-vniVti 30/Vx1", "-vni 30"));
  auto lines = trace.take();
  EXPECT_THAT(lines, Contains("Del stale vni 30 for vti Vx1"));
  EXPECT_THAT(lines, Not(Contains("Del stale vni 10 for vti Vx1")));
}

TEST_F(VlanToVniMapToP2pSmTest, DestroyingAPublisherWithdrawsTheWholePublishedMap) {
  map(100, 10);
  map(5000, 50);
  vti2->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(200), mapping(20, "evpn", 0, vxlan2));
  sm = publisher(primary);
  sm2 = publisher(primary, vxlan2);
  TraceOn trace;
  auto& log = record();
  sm2 = nullptr;  // Vxlan2's publisher takes Vxlan1's entries with it
  auto changed = log.take();
  ASSERT_EQ(changed.size(), 4u);
  EXPECT_EQ(changed[0], "-vni 10") << "the older map goes first";
  EXPECT_THAT(std::vector<std::string>(changed.begin() + 1, changed.end()),
              UnorderedElementsAre("-vniVti 10/Vx1", "-vniVti 50/Vx1", "-vniVti 20/Vx2"));
  EXPECT_THAT(trace.take(), ElementsAre("VlanToVniMapToP2pSm::cleanup()"));
  // The publisher left standing no longer hears the input of the one destroyed.
  vti2->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(300), mapping(30, "evpn", 0, vxlan2));
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());
}

TEST_F(VlanToVniMapToP2pSmTest, APairWithVniNoneIsRefusedAfterTheStaleVniIsRetired) {
  map(100, 10);
  sm = publisher(primary);
  // The dispatch would end the process on the exception: silence it and call the handler.
  sm->hasNotificationActiveIs(false);
  vti->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(100),
                              Vxlan::VniSourcePair(::Vxlan1, "evpn", Vxlan::VniExtOrNone()));
  try {
    sm->handleVlanToVniMap(Bridging::ExtendedVlanId(100));
    FAIL() << "a pair with VNI none was accepted";
  } catch (Brix::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Vxlan::VniExt::value < Vxlan::VniExt::min or > Vxlan::VniExt::max not allowed");
  }
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());
}

}  // namespace
}  // namespace VlanVniTest
