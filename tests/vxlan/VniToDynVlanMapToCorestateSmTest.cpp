// The application of the peer's VLAN-to-VNI publication as dynamic VLAN requests in
// localVxStatus: the per-VTI map against the older one, VNI 0 by role, and the resynchronisation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Vxlan/VniToDynVlanMapToCorestateSm.h"
#include "runtime/Exceptions.h"
#include "vxlan/VlanVniTestSupport.h"

namespace VlanVniTest {
namespace {

using MlagVxlan::VniToDynVlanMapToCorestateSm;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr auto primary = Mlag::MlagState::primary;
constexpr auto secondary = Mlag::MlagState::secondary;

class VniToDynVlanMapToCorestateSmTest : public LiveNodesTest {
 protected:
  void SetUp() override {
    LiveNodesTest::SetUp();
    recv = Brix::newNode<Mlag::VxlanStatus>();
    local = Brix::newNode<Mlag::VxlanStatus>();
  }
  void releaseAll() override {
    sm = nullptr;
    recv = local = nullptr;
  }

  VniToDynVlanMapToCorestateSm::Ptr applier(Mlag::MlagState state) {
    return MlagVxlan::vniToDynVlanMapToCorestateSmFactory(recv, local, state);
  }
  void peerVniVti(std::uint32_t vni, std::uint16_t vlan, Lanx::IntfId intf = ::Vxlan1) {
    recv->vniVtiToDynVlanMapIs(key(vni, intf), Bridging::ExtendedVlanId(vlan));
  }
  void peerVniVtiDel(std::uint32_t vni, Lanx::IntfId intf = ::Vxlan1) { recv->vniVtiToDynVlanMapDel(key(vni, intf)); }
  void peerVni(std::uint32_t vni, std::uint16_t vlan) {
    recv->vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni), Bridging::VlanIdOrNone(vlan));
  }
  void peerVniDel(std::uint32_t vni) { recv->vniToDynVlanMapDel(Vxlan::VniExtOrNone(vni)); }

  Brix::Ptr<Mlag::VxlanStatus> recv, local;
  VniToDynVlanMapToCorestateSm::Ptr sm;
};

TEST_F(VniToDynVlanMapToCorestateSmTest, ThePerVtiEntryWinsOverTheOlderMap) {
  peerVni(10, 100);
  peerVni(20, 200);
  peerVniVti(10, 110);
  sm = applier(secondary);
  // A peer that publishes only the older map still gets its VNIs applied to Vxlan1.
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 110}, {{20, "Vx1"}, 200}}));

  peerVni(10, 120);  // the per-VTI entry still stands
  EXPECT_EQ(vniVtiMap(*local).at({10, "Vx1"}), 110);
  peerVniVti(20, 210);
  EXPECT_EQ(vniVtiMap(*local).at({20, "Vx1"}), 210);

  // The per-VTI entry goes while the older map holds the VNI: the older map's VLAN takes over.
  peerVniVtiDel(10);
  EXPECT_EQ(vniVtiMap(*local).at({10, "Vx1"}), 120);
  // A per-VTI entry of VLAN 0 counts as none.
  peerVniVti(10, 0);
  EXPECT_EQ(vniVtiMap(*local).at({10, "Vx1"}), 120);
  peerVniDel(10);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{20, "Vx1"}, 210}}));
  // The older map is never written here.
  EXPECT_THAT(vniMap(*local), IsEmpty());

  // An extended VLAN arrives through the per-VTI map.
  peerVniVti(50, 5000);
  EXPECT_EQ(vniVtiMap(*local).at({50, "Vx1"}), 5000);
}

TEST_F(VniToDynVlanMapToCorestateSmTest, OtherVtisNeverConsultTheOlderMapKeyByKey) {
  // Left by an earlier applier; the all-keys pass keeps it, since the older map has VNI 10.
  local->vniVtiToDynVlanMapIs(key(10, vxlan2), Bridging::ExtendedVlanId(100));
  local->vniVtiToDynVlanMapIs(key(30, vxlan2), Bridging::ExtendedVlanId(300));
  peerVni(10, 50);
  TraceOn trace;
  sm = applier(secondary);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx2"}, 100}, {{10, "Vx1"}, 50}}));
  EXPECT_THAT(trace.take(), Contains(" Removing stale VNI 30 VTI Vx2"));

  peerVniVti(10, 150, vxlan2);
  EXPECT_EQ(vniVtiMap(*local).at({10, "Vx2"}), 150);
  // The key of another VTI goes: the older map's VNI 10 does not keep it.
  peerVniVtiDel(10, vxlan2);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 50}}));
  EXPECT_THAT(trace.take(), Contains(" Del VNI/VTI (10, Vx2)"));
}

TEST_F(VniToDynVlanMapToCorestateSmTest, VniZeroIsAppliedOnASecondaryAndDeletedOnAPrimary) {
  peerVniVti(0, 100);
  peerVniVti(0, 200, vxlan2);
  // Only the primary holds VNI 0 back, whatever else the state is.
  for (auto state : {secondary, Mlag::MlagState::negotiating}) {
    sm = applier(state);
    EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{0, "Vx1"}, 100}, {{0, "Vx2"}, 200}}));
    sm = nullptr;
    EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  }

  // A primary in multi-VTEP MLAG: entries left behind for VNI 0 are deleted, key by key as well.
  local->vniVtiToDynVlanMapIs(key(0), Bridging::ExtendedVlanId(100));
  local->vniVtiToDynVlanMapIs(key(0, vxlan2), Bridging::ExtendedVlanId(200));
  peerVniVti(10, 110);
  TraceOn trace;
  sm = applier(primary);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 110}}));
  EXPECT_THAT(trace.take(),
              Contains("VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(0) return Delete VNI 0 on primary"));

  local->vniVtiToDynVlanMapIs(key(0), Bridging::ExtendedVlanId(100));
  peerVni(0, 300);
  EXPECT_THAT(trace.take(),
              ElementsAre("VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(0)",
                          "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(0, Vx1)",
                          "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(0) return Delete VNI 0 on primary",
                          "VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(0) return"));
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 110}}));
}

TEST_F(VniToDynVlanMapToCorestateSmTest, AnEmptyPeerEmptiesTheOutputAndReleaseLeavesNothing) {
  local->vniVtiToDynVlanMapIs(key(10), Bridging::ExtendedVlanId(100));
  local->vniVtiToDynVlanMapIs(key(20, vxlan2), Bridging::ExtendedVlanId(200));
  local->vniToDynVlanMapIs(Vxlan::VniExtOrNone(7), Bridging::VlanIdOrNone(70));
  TraceOn trace;
  sm = applier(secondary);
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  EXPECT_EQ(vniMap(*local), (VniMap{{7, 70}})) << "only the cleanup touches the older map";
  auto lines = trace.take();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 2),
              ElementsAre("VniToDynVlanMapToCorestateSm::handleInitialized()",
                          "VniVtiToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap()"));
  EXPECT_THAT(std::vector<std::string>(lines.begin() + 2, lines.begin() + 4),
              UnorderedElementsAre(" Removing stale VNI 10 VTI Vx1", " Removing stale VNI 20 VTI Vx2"));
  EXPECT_THAT(std::vector<std::string>(lines.begin() + 4, lines.end()),
              ElementsAre("VniVtiToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap() return",
                          "VniToDynVlanMapToCorestateSm::handleInitialized() return"));

  peerVniVti(30, 300);
  peerVni(40, 400);
  ASSERT_EQ(vniVtiMap(*local).size(), 2u);
  MapChanges log(*local);
  sm = nullptr;
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  EXPECT_THAT(vniMap(*local), IsEmpty());
  auto changed = log.take();
  ASSERT_EQ(changed.size(), 3u);
  EXPECT_EQ(changed[0], "-vni 7") << "the older map goes first";
  EXPECT_THAT(std::vector<std::string>(changed.begin() + 1, changed.end()),
              UnorderedElementsAre("-vniVti 30/Vx1", "-vniVti 40/Vx1"));
  EXPECT_THAT(trace.take(), Contains("VniToDynVlanMapToCorestateSm::cleanup()"));

  // Gone for good: the peer's changes reach nobody.
  peerVniVti(50, 500);
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
}

TEST_F(VniToDynVlanMapToCorestateSmTest, AnOlderMapKeyOfVniNoneIsRefused) {
  sm = applier(secondary);
  // The dispatch would end the process on the exception: silence it and call the handlers.
  sm->hasNotificationActiveIs(false);
  recv->vniToDynVlanMapIs(Vxlan::VniExtOrNone(), Bridging::VlanIdOrNone(5));
  TraceOn trace;
  auto expectRefused = [](auto&& call) {
    try {
      call();
      ADD_FAILURE() << "VNI none was accepted";
    } catch (Brix::RangeException const& e) {
      EXPECT_STREQ(e.what(), "Vxlan::VniExt::value < Vxlan::VniExt::min or > Vxlan::VniExt::max not allowed");
    }
  };
  expectRefused([&] { sm->handleVniToDynVlanMap(Vxlan::VniExtOrNone()); });
  // The entry is traced before the pair is formed, and nothing after.
  EXPECT_THAT(trace.take(), ElementsAre("VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(4294967295)"));
  expectRefused([&] { sm->handleVniVtiToDynVlanMap(); });
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  recv->vniToDynVlanMapDel(Vxlan::VniExtOrNone());
}

}  // namespace
}  // namespace VlanVniTest
