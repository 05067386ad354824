// Shared dynamic VLANs: the primary following the peer's set, and the secondary keeping its set
// from the VLAN configuration by either input, with damage in the flat table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vxlan/BfdVlanTestSupport.h"

namespace {

using namespace BfdVlanTest;

using PrimarySharedVlanTest = Fixture;

TEST_F(PrimarySharedVlanTest, FirstRunMakesTheLocalSetThePeersThenFollowsItVlanByVlan) {
  // A full local set against a peer with 94 fewer, one of them present as false.
  for (std::uint16_t v = 1; v <= 4094; ++v) local->sharedDynVlanIs(Bridging::VlanId(v), true);
  VlanSet peer = vlanRange(95, 4094);
  for (auto v : peer) recv->sharedDynVlanIs(Bridging::VlanId(v), true);
  recv->sharedDynVlanIs(Bridging::VlanId(1), false);
  auto sm = primary();
  EXPECT_EQ(shared(*local), peer);
  EXPECT_EQ(local->sharedDynVlanCount(), peer.size()) << "no key left with false";
  EXPECT_EQ(trace.count(" SharedDynVlan before 4094"), 1u);
  EXPECT_EQ(trace.count(" SharedDynVlan after 4000"), 1u);
  EXPECT_EQ(trace.starting(" Del shared dynVlan").size(), 95u) << "94 in the local walk, VLAN 1 again in the peer's";
  EXPECT_THAT(trace.starting(" Added shared dynVlan"), ::testing::IsEmpty());
  EXPECT_LT(trace.indexOf(" Processing localVxStatus"), trace.indexOf(" Del shared dynVlan 1"));
  EXPECT_LT(trace.indexOf(" Del shared dynVlan 94"), trace.indexOf(" Processing recvVxStatus"));

  enum class Do { set, del, direct };  // direct: a notification for a VLAN the peer no longer has
  struct Step {
    std::uint16_t vlan;
    Do what;
    bool value;
    char const* line;  // the level 6 line, or none
  };
  for (auto const& s :
       {Step{7, Do::set, true, " Added shared dynVlan 7"},
        Step{7, Do::set, true, nullptr} /* unchanged: no notification */,
        Step{7, Do::set, false, " Del shared dynVlan 7"}, Step{100, Do::del, false, " Del shared dynVlan 100"},
        Step{100, Do::direct, false, " Del shared dynVlan 100"}}) {
    SCOPED_TRACE(s.vlan);
    trace.clear();
    if (s.what == Do::set) recv->sharedDynVlanIs(Bridging::VlanId(s.vlan), s.value);
    if (s.what == Do::del) (void)recv->sharedDynVlanDel(Bridging::VlanId(s.vlan));
    if (s.what == Do::direct) sm->handleSharedDynVlan(Bridging::VlanId(s.vlan));
    if (s.value) {
      peer.insert(s.vlan);
    } else {
      peer.erase(s.vlan);
    }
    EXPECT_EQ(shared(*local), peer);
    EXPECT_EQ(trace.starting(" ").size(), s.line ? 1u : 0u);
    if (s.line) {
      EXPECT_EQ(trace.levelOf(s.line), 6);
    }
  }
  sm = nullptr;
  EXPECT_EQ(shared(*local), vlanRange(1, 4094));
}

TEST_F(PrimarySharedVlanTest, AnEmptyPeerSetEmptiesTheLocalOne) {
  local->sharedDynVlanIs(Bridging::VlanId(5), true);
  auto sm = primary();
  EXPECT_EQ(local->sharedDynVlanCount(), 0u);
  EXPECT_EQ(trace.count(" SharedDynVlan after 0"), 1u);
}

}  // namespace
