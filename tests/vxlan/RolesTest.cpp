// The two peer roles: construction and first run with the exchange child, the stale VRF passes,
// the shared VLAN reset and range test of the secondary, the cleanup both roles leave behind,
// a role that never finished its first run, and the roles as children of the container.
#include <optional>

#include "vxlan/Harness.h"

namespace {

using namespace TestSupport;

// The container tests make the ring-buffer handle: this process traces into a directory of its own.
MLAGVXLAN_TEST_RINGLOGDIR();

using Names = std::set<std::string>;
using Status = Mlag::VxlanStatus;

VlanSet const allVlans = vlanRange(1, 4094);

// The VRF names of an ARP collection.
template <class Iter>
Names vrfs(Iter it) {
  Names out;
  for (; !it.done(); it.advance()) out.emplace(it.currNodeNonStale().key.view());
  return out;
}

Lanx::IpAddr const localVtep(10, 0, 0, 1), peerVtep(10, 0, 0, 2);

// What a former role may have left in a status object: some shared VLANs (one of them not
// shared), BFD peers of each kind and VTEP addresses.
void fillFormerLife(Status& s) {
  s.sharedDynVlanIs(Bridging::VlanId(5), true);
  s.sharedDynVlanIs(Bridging::VlanId(6), false);
  s.bfdPeerStatusIs(VxlanController::BfdPeerStatusV2(Brix::String("vtep"), Lanx::IpAddr(192, 0, 2, 1)));
  s.mlagBfdPeerStatusIs(VxlanController::BfdPeerStatusV2(Brix::String("mlag"), Lanx::IpAddr(192, 0, 2, 2)));
  s.allVxlanBfdPeerStatusIs(Mlag::VtiVtep(::Vxlan1, Lanx::IpAddr(192, 0, 2, 3)));
  s.vtepTypeAddrIs(Vxlan::VtepType::alternateVtep, Lanx::IpAddr(198, 51, 100, 7));
  s.vtepTypeAddr6Is(Vxlan::VtepType::localVtep, Lanx::Ip6Addr::parse("2001:db8::99"));
}

class RolesTest : public RoleTest {
 protected:
  RolesTest() : RoleTest(withAll) { mlagStatus->mlagStateIs(Mlag::MlagState::primary); }

  // VLAN `vlan` to VNI `vni` on a VTI, from a source that may go to the peer; no VNI is input
  // the exchange refuses by raising.
  static void mapVlan(Vxlan::VtiStatus& vti, std::uint16_t vlan, Vxlan::VniExtOrNone vni) {
    vti.extendedVlanToVniMapIs(
        Bridging::ExtendedVlanId(vlan),
        Vxlan::VniSourcePair(vti.intfId(), Brix::String(Vxlan::stringValue(Vxlan::VniSource::controllerSource)), vni));
  }
  static std::size_t subscribers(std::initializer_list<Vok::Entity const*> entities) {
    std::size_t n = 0;
    for (auto const* e : entities) n += e->publisher()->subscriberCount();
    return n;
  }

  Trace trace{1u << 5 | 1u << 6};
  Brix::Ptr<Vxlan::VtiStatus> vxlan1 = vtiDir->vtiStatusIs(::Vxlan1);
};

TEST_F(RolesTest, NullOptionalInputsStillGiveEachRoleItsExchangeChild) {
  auto p = MlagVxlan::primarySmFactory(sent, recv, local, nullptr, nullptr, nullptr, bfdPeer, mlagStatus);
  EXPECT_TRUE(p->vlanToVniMapSm() && p->vlanToVniMapSm()->hasNotificationActive());
  p = nullptr;
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  auto s = MlagVxlan::secondarySmFactory(sent, recv, local, bridgingConfig, nullptr, nullptr, nullptr, mlagStatus);
  EXPECT_TRUE(s->vlanToVniMapSm() && s->vlanToVniMapSm()->initialized());
  s = nullptr;
  // The cleanups read none of the null inputs.
  EXPECT_EQ(trace.count("PrimarySm::doCleanup() return") + trace.count("SecondarySm::doCleanup() return"), 2u);
}

TEST_F(RolesTest, PrimaryFirstRunRemovesVrfsNoLongerConfiguredFromEachArpCollection) {
  // Configured, each with a row: "default" sorts first, the others in byte order; a lookup with
  // another order would miss some of them.
  for (char const* name : {"red", "default", "Zeta", "blue-1"}) {
    arpInput->vrfIs(L3::VrfName(name))
        ->ipv4Is(Arp::InputConfigEntry(Arp::InputConfigKey(Lanx::IntfId("Vlan10"), Lanx::IpAddr(10, 1, 1, 2)),
                                       Lanx::EthAddr(0, 0, 1)));
  }
  local->arpStatusIs(L3::VrfName("gone"));  // localVxStatus is not this pass's business
  // The VRF reactors fill the form the peer takes and empty the other before the stale passes
  // run, so each pass is seen with its own form.
  for (bool withVlan : {false, true}) {
    SCOPED_TRACE(withVlan ? "with VLAN" : "by VRF");
    recv->peerArpByVlanIpCapableIs(withVlan);
    for (char const* name : {"default", "red", "Zeta", "gone", "alsoGone"}) sent->arpStatusIs(L3::VrfName(name));
    sent->arpStatus(L3::VrfName("gone"))->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(10, 1, 1, 1), Lanx::EthAddr()));
    for (char const* name : {"blue-1", "Zeta", "onlyWithVlan"}) sent->arpStatusWithVlanIs(L3::VrfName(name));
    trace.clear();

    auto sm = primary();
    Names const configured{"default", "red", "Zeta", "blue-1"};
    EXPECT_EQ(vrfs(sent->arpStatusIter()), withVlan ? Names{} : configured);
    EXPECT_EQ(vrfs(sent->arpStatusWithVlanIter()), withVlan ? configured : Names{});
    EXPECT_EQ(vrfs(local->arpStatusIter()), Names{"gone"});
    std::vector<std::string> dels;
    for (auto const& t : trace.texts()) {
      if (t.starts_with(" Del stale VRF")) dels.push_back(t);
    }
    std::sort(dels.begin(), dels.end());
    using Lines = std::vector<std::string>;
    EXPECT_EQ(dels, (withVlan ? Lines{" Del stale VRF onlyWithVlan from sentVxStatus arpStatusWithVlan"}
                              : Lines{" Del stale VRF alsoGone from sentVxStatus arpStatus",
                                      " Del stale VRF gone from sentVxStatus arpStatus"}));
    EXPECT_EQ(trace.levelOf(dels.front()), 6);
    EXPECT_EQ(trace.levelOf("PrimarySm::handleInitialized()"), 5);
    // The exchange child makes its first run inside the primary's, before the stale VRFs go.
    EXPECT_LT(trace.indexOf("VlanToVniMapSm::handleInitialized() return"), trace.indexOf(dels.front()));
    EXPECT_EQ(trace.indexOf("PrimarySm::handleInitialized() return"), long(trace.lines().size()) - 1);
  }

  // Without an ARP input every published VRF is stale.
  sent->arpStatusWithVlanIs(L3::VrfName("blue"));
  auto sm = MlagVxlan::primarySmFactory(sent, recv, local, vtiDir, vtepDir, nullptr, bfdPeer, mlagStatus);
  EXPECT_EQ(sent->arpStatusCount() + sent->arpStatusWithVlanCount(), 0u);
}

// The secondary's first run resets the shared VLANs of sentVxStatus to all true unless every
// VLAN is a member (whatever its value), then keeps only those inside the configured range.
TEST_F(RolesTest, SecondaryResetsSharedVlansUnlessTheSetIsFullThenKeepsOnlyTheConfiguredRange) {
  struct Case {
    std::uint16_t bound1, bound2;
    VlanSet kept;
  };
  // No range, the whole range, the bounds in either order with both ends kept, one VLAN at each
  // end, a zero bound as the low end, a bound past the VLANs.
  std::vector<Case> const cases = {{0, 0, allVlans},
                                   {1, 4094, allVlans},
                                   {200, 100, vlanRange(100, 200)},
                                   {1, 1, VlanSet{1}},
                                   {4094, 4094, VlanSet{4094}},
                                   {0, 50, vlanRange(1, 50)},
                                   {4000, 4095, vlanRange(4000, 4094)}};
  PublicationRecorder localPubs(*local);
  VlanSet membersAtReturn, trueAtReturn;
  std::size_t localWritesAtReturn = 0;
  trace.probes["SecondarySm::handleInitialized() return"] = [&] {
    membersAtReturn = shared(*sent);
    trueAtReturn = shared(*sent, true);
    localWritesAtReturn = localPubs.count(Status::sharedDynVlanField);
  };
  for (auto const& c : cases) {
    bridgingConfig->vlanRangeBound1Is(c.bound1);
    bridgingConfig->vlanRangeBound2Is(c.bound2);
    // 4093 members, none, or all of them; VLAN 7 false in each.
    for (int before : {4093, 0, 4094}) {
      SCOPED_TRACE(testing::Message() << "bounds (" << c.bound1 << "," << c.bound2 << "), " << before << " members");
      sent->sharedDynVlanDelAll();
      for (auto v : vlanRange(1, std::uint16_t(before))) sent->sharedDynVlanIs(Bridging::VlanId(v), before == 4094);
      sent->sharedDynVlanIs(Bridging::VlanId(7), false);
      localPubs.clear();
      trace.clear();
      (void)secondary();
      bool const reset = before != 4094;
      EXPECT_EQ(trace.count(" Reset shared dyn vlans"), reset ? 1u : 0u);
      EXPECT_EQ(membersAtReturn, c.kept);
      VlanSet kept = c.kept;
      if (!reset) kept.erase(7);
      EXPECT_EQ(trueAtReturn, kept);
      EXPECT_EQ(trace.count(" Del shared dyn vlans outside vlan range"), 4094 - c.kept.size());
      EXPECT_EQ(localWritesAtReturn, 0u) << "the reset is for sentVxStatus only";
    }
  }
  EXPECT_EQ(trace.levelOf(" Del shared dyn vlans outside vlan range"), 6);
}

TEST_F(RolesTest, SecondaryFirstRunRemovesOnlyVrfsThePeerPublishesInNeitherForm) {
  recv->peerArpByVlanIpCapableIs(true);     // the reactor by VRF sleeps and leaves "plain" as it is
  recv->arpStatusIs(L3::VrfName("plain"));  // the peer publishes it without VLANs only
  recv->arpStatusWithVlanIs(L3::VrfName("withVlan"));
  for (char const* name : {"plain", "withVlan", "gone"}) {
    local->arpStatusWithVlanIs(L3::VrfName(name))
        ->arpEntryIs(Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), Lanx::IpAddr(10, 0, 0, 9), Arp::ArpSource{}),
                     Lanx::EthAddr());
  }
  local->arpStatusIs(L3::VrfName("staleButNotWalked"));
  sent->arpStatusIs(L3::VrfName("gone"));  // the primary's business, not the secondary's

  auto sm = secondary();
  EXPECT_EQ(vrfs(local->arpStatusWithVlanIter()), (Names{"plain", "withVlan"}));
  EXPECT_EQ(local->arpStatusWithVlan(L3::VrfName("plain"))->arpEntryCount(), 1u);
  EXPECT_EQ(vrfs(local->arpStatusIter()), Names{"staleButNotWalked"});
  EXPECT_EQ(vrfs(sent->arpStatusIter()), Names{"gone"});
  EXPECT_EQ(trace.levelOf(" Del stale VRF gone from localVxStatus"), 6);
  // After the exchange child's first run.
  EXPECT_LT(trace.indexOf("VlanToVniMapSm::handleInitialized() return"),
            trace.indexOf(" Del stale VRF gone from localVxStatus"));
}

// What both roles leave behind in each status object.
void expectCleaned(Status const& s, char const* name) {
  SCOPED_TRACE(name);
  EXPECT_EQ(shared(s, true), allVlans);
  EXPECT_EQ(s.sharedDynVlanCount(), 4094u);
  EXPECT_EQ(s.bfdPeerStatusCount() + s.mlagBfdPeerStatusCount(), 0u);
  EXPECT_EQ(s.vtepTypeAddrCount() + s.vtepTypeAddr6Count(), 0u);
  // Emptied only through the BFD children, of which this object has none.
  EXPECT_EQ(s.allVxlanBfdPeerStatusCount(), 1u);
}

TEST_F(RolesTest, EachRolesCleanupLeavesBothObjectsCleanThenItsChildWithdrawsTheMaps) {
  vxlan1->localVtepAddrIs(localVtep);
  vxlan1->localVtepAddr6Is(Lanx::Ip6Addr::parse("2001:db8::1"));
  mapVlan(*vxlan1, 10, Vxlan::VniExtOrNone(10010));
  recv->vtepTypeAddrIs(Vxlan::VtepType::localVtep, peerVtep);
  recv->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10010), ::Vxlan1), Bridging::ExtendedVlanId(10));
  for (bool isPrimary : {true, false}) {
    SCOPED_TRACE(isPrimary ? "primary" : "secondary");
    fillFormerLife(*sent);
    fillFormerLife(*local);
    Brix::Ptr<Vok::StateMachine> sm = isPrimary ? Brix::Ptr<Vok::StateMachine>(primary()) : secondary();
    // The maps the exchange child wrote: the primary's publication, the secondary's dynamic VLANs.
    auto maps = [&] { return (isPrimary ? sent : local)->vniVtiToDynVlanMapCount(); };
    ASSERT_EQ(maps(), 1u);
    ASSERT_EQ(sent->vtepTypeAddr(Vxlan::VtepType::localVtep), localVtep);
    ASSERT_EQ(sent->vtepTypeAddr6Count(), 1u);
    // localVxStatus is cleaned before sentVxStatus is written.
    std::optional<std::size_t> localSharedAtFirstSentWrite;
    PublicationRecorder sentPubs(*sent, [&](PublicationRecorder::Publication const&) {
      if (!localSharedAtFirstSentWrite) localSharedAtFirstSentWrite = shared(*local, true).size();
    });
    std::string const role = isPrimary ? "PrimarySm" : "SecondarySm";
    std::size_t mapsAtCleanupReturn = 0;
    trace.probes[role + "::doCleanup() return"] = [&] { mapsAtCleanupReturn = maps(); };
    trace.clear();
    sm = nullptr;
    expectCleaned(*sent, "sentVxStatus");
    expectCleaned(*local, "localVxStatus");
    EXPECT_EQ(localSharedAtFirstSentWrite, std::optional<std::size_t>(4094));
    EXPECT_EQ(mapsAtCleanupReturn, 1u) << "the role's own cleanup leaves the VLAN maps";
    EXPECT_EQ(maps(), 0u) << "the exchange child's teardown withdraws them";
    EXPECT_EQ(trace.indexOf(role + "::doCleanup()"), 0);
    EXPECT_EQ(trace.levelOf(role + "::doCleanup()"), 5);
    EXPECT_LT(trace.indexOf(role + "::doCleanup() return"),
              trace.indexOf(isPrimary ? "VlanToVniMapToP2pSm::cleanup()" : "VniToDynVlanMapToCorestateSm::cleanup()"));
    EXPECT_EQ(subscribers({vxlan1.get(), recv.get(), mlagStatus.get()}), 0u);
  }
}

TEST_F(RolesTest, ARoleRefusedByItsExchangeChildDoesNoCleanup) {
  // The primary leaves the outputs as they were.
  sent->arpStatusIs(L3::VrfName("notConfigured"));  // would go at the end of a finished first run
  auto sentBefore = Brix::newNode<Status>(), localBefore = Brix::newNode<Status>();
  for (auto* s : {sent.get(), local.get(), sentBefore.get(), localBefore.get()}) fillFormerLife(*s);
  sentBefore->arpStatusIs(L3::VrfName("notConfigured"));
  mapVlan(*vxlan1, 10, Vxlan::VniExtOrNone());
  // The shared VLANs followed the peer's (none) before the child refused.
  localBefore->sharedDynVlanDelAll();
  EXPECT_THROW(primary(), Brix::RangeException);
  EXPECT_TRUE(*sent == *sentBefore);
  EXPECT_TRUE(*local == *localBefore);
  EXPECT_EQ(trace.indexOf("PrimarySm::handleInitialized() return"), -1);
  EXPECT_EQ(trace.indexOf("PrimarySm::doCleanup()"), -1);
  EXPECT_EQ(subscribers({recv.get(), vtiDir.get(), vxlan1.get(), mlagStatus.get(), vtepDir.get(), arpInput.get(),
                         bfdPeer.get()}),
            0u);

  // With an MLAG VTEP address of its own the secondary publishes too, and meets the bad mapping;
  // its reset and range test stand (a cleanup would have made the set 1 to 4094 again).
  vxlan1->mlagVtepAddrIs(Lanx::IpAddr(10, 0, 0, 100));
  bridgingConfig->vlanRangeBound1Is(100);
  bridgingConfig->vlanRangeBound2Is(200);
  // Its BFD rows were rebuilt from the peer's (none) before the child refused.
  localBefore->bfdPeerStatusDelAll();
  localBefore->mlagBfdPeerStatusDelAll();
  EXPECT_THROW(secondary(), Brix::RangeException);
  EXPECT_EQ(shared(*sent), vlanRange(100, 200));
  EXPECT_EQ(sent->bfdPeerStatusCount(), 1u);
  EXPECT_TRUE(*local == *localBefore);
  EXPECT_EQ(trace.indexOf("SecondarySm::doCleanup()"), -1);
  EXPECT_EQ(subscribers({recv.get(), vxlan1.get()}), 0u);
}

TEST_F(RolesTest, ContainerReplacesARoleForOtherArgumentsAndKeepsItWhenTheReplacementIsRefused) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  auto* former = c->primarySmIs(sent, recv, local, vtiDir, vtepDir, arpInput, bfdPeer, mlagStatus).get();
  auto otherArp = Brix::newNode<Arp::InputConfig>();
  trace.clear();
  auto second = c->primarySmIs(sent, recv, local, vtiDir, vtepDir, otherArp, bfdPeer, mlagStatus);
  EXPECT_NE(second.get(), former);
  EXPECT_LT(trace.indexOf("PrimarySm::handleInitialized() return"), trace.indexOf("PrimarySm::doCleanup()"));

  PublicationRecorder pubs(*c);
  auto badDir = Brix::newNode<Vxlan::VtiStatusDir>();
  mapVlan(*badDir->vtiStatusIs(::Vxlan1), 10, Vxlan::VniExtOrNone());
  trace.clear();
  EXPECT_THROW(c->primarySmIs(sent, recv, local, badDir, vtepDir, otherArp, bfdPeer, mlagStatus), Brix::RangeException);
  EXPECT_EQ(c->primarySm(), second);
  EXPECT_THAT(pubs.publications(), IsEmpty());
  EXPECT_EQ(trace.indexOf("PrimarySm::doCleanup()"), -1);
}

}  // namespace
