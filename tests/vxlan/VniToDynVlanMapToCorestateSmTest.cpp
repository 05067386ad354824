// The application of the peer's VLAN-to-VNI publication as dynamic VLAN requests in
// localVxStatus: the per-VTI map against the older one, VNI 0 by role, and the resynchronisation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
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

constexpr auto primary = Mlag::MlagState::primary;
constexpr auto secondary = Mlag::MlagState::secondary;

class VniToDynVlanMapToCorestateSmTest : public LiveNodesTest {
 protected:
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
  void peerVni(std::uint32_t vni, std::uint16_t vlan) {
    recv->vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni), Bridging::VlanIdOrNone(vlan));
  }

  Brix::Ptr<Mlag::VxlanStatus> recv = Brix::newNode<Mlag::VxlanStatus>(), local = Brix::newNode<Mlag::VxlanStatus>();
  VniToDynVlanMapToCorestateSm::Ptr sm;
};

// What an applier makes of the peer's publication; the property test shows that the one-key
// handlers end where this all-keys pass does.
TEST_F(VniToDynVlanMapToCorestateSmTest, ThePerVtiEntryWinsOverTheOlderMapAndOnlyThePrimaryHoldsBackVniZero) {
  struct Case {
    char const* what;
    VniVtiMap perVti;
    VniMap older;
    Mlag::MlagState state;
    VniVtiMap applied;
  };
  for (auto const& c : std::vector<Case>{
           {"older map alone goes to Vxlan1", {}, {{10, 100}}, secondary, {{{10, "Vx1"}, 100}}},
           {"the per-VTI entry wins", {{{10, "Vx1"}, 110}}, {{10, 120}}, secondary, {{{10, "Vx1"}, 110}}},
           {"VLAN 0 counts as none", {{{10, "Vx1"}, 0}}, {{10, 120}}, secondary, {{{10, "Vx1"}, 120}}},
           {"other VTIs alongside",
            {{{10, "Vx2"}, 150}},
            {{10, 50}},
            secondary,
            {{{10, "Vx1"}, 50}, {{10, "Vx2"}, 150}}},
           {"an extended VLAN", {{{50, "Vx1"}, 5000}}, {}, secondary, {{{50, "Vx1"}, 5000}}},
           {"VNI 0 on a secondary",
            {{{0, "Vx1"}, 100}, {{0, "Vx2"}, 200}},
            {},
            secondary,
            {{{0, "Vx1"}, 100}, {{0, "Vx2"}, 200}}},
           {"VNI 0 while negotiating", {{{0, "Vx1"}, 100}}, {}, Mlag::MlagState::negotiating, {{{0, "Vx1"}, 100}}},
           {"VNI 0 on a primary", {{{0, "Vx1"}, 100}, {{10, "Vx1"}, 110}}, {{0, 300}}, primary, {{{10, "Vx1"}, 110}}},
       }) {
    SCOPED_TRACE(c.what);
    recv->vniVtiToDynVlanMapDelAll();
    recv->vniToDynVlanMapDelAll();
    for (auto const& [k, vlan] : c.perVti) peerVniVti(k.first, vlan, Lanx::IntfId("Vxlan" + k.second.substr(2)));
    for (auto const& [vni, vlan] : c.older) peerVni(vni, vlan);
    // Entries left by an earlier applier go unless the publication holds them.
    local->vniVtiToDynVlanMapIs(key(0), Bridging::ExtendedVlanId(100));
    local->vniVtiToDynVlanMapIs(key(30, vxlan2), Bridging::ExtendedVlanId(300));
    sm = applier(c.state);
    EXPECT_EQ(vniVtiMap(*local), c.applied);
    EXPECT_THAT(vniMap(*local), IsEmpty()) << "the older map is never written here";
    sm = nullptr;
    EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  }
}

TEST_F(VniToDynVlanMapToCorestateSmTest, KeyByKeyTracesAndTheTeardownWithdrawsTheOlderMapFirst) {
  local->vniToDynVlanMapIs(Vxlan::VniExtOrNone(7), Bridging::VlanIdOrNone(70));
  // Left by an earlier applier; the all-keys pass keeps it, since the older map has VNI 10.
  local->vniVtiToDynVlanMapIs(key(10, vxlan2), Bridging::ExtendedVlanId(100));
  peerVni(10, 50);
  TraceOn trace;
  sm = applier(primary);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx2"}, 100}, {{10, "Vx1"}, 50}}));
  // Key by key, another VTI never consults the older map.
  peerVniVti(10, 150, vxlan2);
  recv->vniVtiToDynVlanMapDel(key(10, vxlan2));
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 50}}));
  EXPECT_THAT(trace.take(), Contains(" Del VNI/VTI (10, Vx2)"));
  local->vniVtiToDynVlanMapIs(key(0), Bridging::ExtendedVlanId(100));
  peerVni(0, 300);
  EXPECT_THAT(trace.take(),
              ElementsAre("VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(0)",
                          "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(0, Vx1)",
                          "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(0) return Delete VNI 0 on primary",
                          "VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(0) return"));

  MapChanges log(*local);
  sm = nullptr;
  EXPECT_THAT(log.take(), ElementsAre("-vni 7", "-vniVti 10/Vx1")) << "the older map goes first";
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
  for (auto const& call : std::initializer_list<std::function<void()>>{
           [&] { sm->handleVniToDynVlanMap(Vxlan::VniExtOrNone()); }, [&] { sm->handleVniVtiToDynVlanMap(); }}) {
    EXPECT_THROW(call(), Brix::RangeException);
  }
  // The entry is traced before the pair is formed, and nothing after.
  EXPECT_THAT(trace.take(), ElementsAre("VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(4294967295)",
                                        "VniVtiToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap()"));
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  recv->vniToDynVlanMapDel(Vxlan::VniExtOrNone());
}

}  // namespace
}  // namespace VlanVniTest
