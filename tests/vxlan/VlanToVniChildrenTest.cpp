// The two children of the VLAN-to-VNI exchange. The publisher writes a VTI's VLAN-to-VNI map
// into sentVxStatus: what goes there, in what order stale VNIs and VLANs are retired, and what
// the shadow map remembers. The applier turns the peer's publication into dynamic VLAN requests
// in localVxStatus: the per-VTI map against the older one, VNI 0 by role, the resynchronisation.
// Both are level-triggered: after any sequence of input changes each leaves its output as a
// freshly built one makes it of the final input.

#include "Vxlan/VlanToVniMapToP2pSm.h"
#include "Vxlan/VniToDynVlanMapToCorestateSm.h"
#include "vxlan/VlanVniTestSupport.h"

namespace VlanVniTest {
namespace {

constexpr auto primary = Mlag::MlagState::primary;
constexpr auto secondary = Mlag::MlagState::secondary;
std::string const mlagSource = sourceText(Vxlan::VniSource::mlagSource);
std::string const staticSource = sourceText(Vxlan::VniSource::staticSource);

// The publisher's entry and return lines for one VLAN.
std::string entry(int vlan) { return "VlanToVniMapToP2pSm::handleVlanToVniMap(" + std::to_string(vlan) + ")"; }
std::string exit(int vlan) { return entry(vlan) + " return"; }

class VlanVniChildren : public ::testing::Test {
 protected:
  MlagVxlan::VlanToVniMapToP2pSm::Ptr publisher(Mlag::MlagState state, Lanx::IntfId intf = ::Vxlan1) {
    return MlagVxlan::vlanToVniMapToP2pSmFactory(intf, intf == ::Vxlan1 ? vti : vti2, sent, state);
  }
  MlagVxlan::VniToDynVlanMapToCorestateSm::Ptr applier(Mlag::MlagState state) {
    return MlagVxlan::vniToDynVlanMapToCorestateSmFactory(recv, local, state);
  }
  void map(std::uint16_t vlan, std::uint32_t vni, std::string_view source = "evpn", std::uint8_t flags = 0,
           Lanx::IntfId intf = ::Vxlan1) {
    (intf == ::Vxlan1 ? vti : vti2)
        ->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(vlan), mapping(vni, source, flags, intf));
  }
  void unmap(std::uint16_t vlan, Lanx::IntfId intf = ::Vxlan1) {
    (intf == ::Vxlan1 ? vti : vti2)->extendedVlanToVniMapDel(Bridging::ExtendedVlanId(vlan));
  }
  bool hasShadow(std::uint16_t vlan) const { return pub->shadowVlanToVniMapHas(Bridging::ExtendedVlanId(vlan)); }
  void peerVni(std::uint32_t vni, std::uint16_t vlan) {
    recv->vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni), Bridging::VlanIdOrNone(vlan));
  }

  NoNodesLeft noNodesLeft;
  Brix::Ptr<Mlag::VxlanStatus> sent = Brix::newNode<Mlag::VxlanStatus>(), recv = Brix::newNode<Mlag::VxlanStatus>(),
                               local = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Vxlan::VtiStatus> vti = Brix::newNode<Vxlan::VtiStatus>(::Vxlan1),
                              vti2 = Brix::newNode<Vxlan::VtiStatus>(vxlan2);
  MlagVxlan::VlanToVniMapToP2pSm::Ptr pub, pub2;
  MlagVxlan::VniToDynVlanMapToCorestateSm::Ptr app;
};

// ---- the publisher ----

TEST_F(VlanVniChildren, ANewVniRetiresTheOldOneFirstAndAnUnshareableOneIsWithdrawnButRemembered) {
  map(100, 10);
  pub = publisher(primary);
  Trace trace;
  MapChanges log(*sent);
  map(100, 20);
  EXPECT_THAT(log.take(), ElementsAre("-vniVti 10/Vx1", "-vni 10", "+vniVti 20/Vx1=100", "+vni 20=100"));
  EXPECT_THAT(trace.take(), ElementsAre(entry(100), " Removing stale VNI 10", StartsWith(" isMlagShareable("),
                                        " Syncing VLAN (100) to VNI (20) for VTI (Vx1) to peer", exit(100)));
  // Another field of the pair changes, the VNI stays: the entries go and come back.
  map(100, 20, "evpn", 1);
  EXPECT_THAT(log.take(), ElementsAre("-vniVti 20/Vx1", "-vni 20", "+vniVti 20/Vx1=100", "+vni 20=100"));
  // No longer shareable: withdrawn, and still in the shadow, so the removal deletes once more
  // (nothing left to publish) and forgets the VLAN.
  trace.take();
  map(100, 20, mlagSource);
  EXPECT_THAT(log.take(), ElementsAre("-vniVti 20/Vx1", "-vni 20"));
  EXPECT_THAT(trace.take(), Contains(" Not syncing VLAN (100) to VNI (20) for VTI (Vx1)"));
  unmap(100);
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_THAT(trace.take(),
              ElementsAre(entry(100), " Deleting VLAN (100) to VNI (20) for VTI (Vx1) from peer", exit(100)));
  EXPECT_FALSE(hasShadow(100));
  // A removal for a VLAN that never was published: entry and return alone.
  map(300, 30, mlagSource);
  trace.take();
  unmap(300);
  EXPECT_THAT(trace.take(), ElementsAre(entry(300), exit(300)));
}

TEST_F(VlanVniChildren, TwoVlansFightingOverOneVni) {
  map(100, 10);
  pub = publisher(primary);
  Trace trace;
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

TEST_F(VlanVniChildren, ShareabilityBySourceAndRole) {
  Trace trace;
  struct Case {
    std::string source;
    Mlag::MlagState state;
    bool shared;
  };
  for (auto const& c : std::vector<Case>{{mlagSource, primary, false},
                                         {mlagSource, secondary, false},
                                         {mlagSource, Mlag::MlagState::disabled, false},
                                         {staticSource, primary, true},
                                         {staticSource, secondary, false},
                                         {staticSource, Mlag::MlagState::negotiating, true},
                                         {sourceText(Vxlan::VniSource::evpnSource), secondary, true},
                                         {"", secondary, true},
                                         {"somethingElse", secondary, true}}) {
    std::string const state(Mlag::stringValue(c.state));
    SCOPED_TRACE(c.source + " " + state);
    auto pair = mapping(10, c.source);
    trace.take();
    EXPECT_EQ(MlagVxlan::isMlagShareable(pair, c.state), c.shared);
    // The pair as VNI, interface and source; the state by its name.
    EXPECT_THAT(trace.take(), ElementsAre(" isMlagShareable((10, Vxlan1, " + c.source + ")," + state +
                                          (c.shared ? ") return true" : ") return false")));
    EXPECT_EQ(pair, mapping(10, c.source)) << "the pair is not changed";
  }
}

TEST_F(VlanVniChildren, ExtendedVlansAndOtherVtisGoOnlyIntoThePerVtiMap) {
  pub = publisher(primary);
  pub2 = publisher(primary, vxlan2);
  map(5000, 50);
  map(4094, 40);
  map(100, 60, "evpn", 0, vxlan2);
  map(200, 40, "evpn", 0, vxlan2);
  EXPECT_EQ(vniVtiMap(*sent),
            (VniVtiMap{{{50, "Vx1"}, 5000}, {{40, "Vx1"}, 4094}, {{60, "Vx2"}, 100}, {{40, "Vx2"}, 200}}));
  EXPECT_EQ(vniMap(*sent), (VniMap{{40, 4094}}));
  // Vxlan2 giving up VNI 40 leaves Vxlan1's entries of the same VNI alone.
  unmap(200, vxlan2);
  EXPECT_EQ(vniVtiMap(*sent).count({40, "Vx1"}), 1u);
  EXPECT_EQ(vniMap(*sent), (VniMap{{40, 4094}}));
}

TEST_F(VlanVniChildren, AFreshPublisherRemovesWhatAnEarlierOneLeftStaleFirst) {
  map(100, 10);
  map(300, 31);
  sent->vniVtiToDynVlanMapIs(key(10), Bridging::ExtendedVlanId(100));          // current
  sent->vniVtiToDynVlanMapIs(key(20), Bridging::ExtendedVlanId(200));          // VLAN no longer mapped
  sent->vniVtiToDynVlanMapIs(key(30), Bridging::ExtendedVlanId(300));          // VLAN mapped elsewhere
  sent->vniVtiToDynVlanMapIs(key(40, vxlan2), Bridging::ExtendedVlanId(400));  // another publisher's
  for (std::uint32_t vni : {10, 20, 30})
    sent->vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni), Bridging::VlanIdOrNone(vni * 10));
  Trace trace;
  MapChanges log(*sent);
  pub = publisher(primary);
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

TEST_F(VlanVniChildren, DestroyingAPublisherWithdrawsTheWholePublishedMap) {
  map(100, 10);
  map(5000, 50);
  map(200, 20, "evpn", 0, vxlan2);
  pub = publisher(primary);
  pub2 = publisher(primary, vxlan2);
  Trace trace;
  MapChanges log(*sent);
  pub2 = nullptr;  // Vxlan2's publisher takes Vxlan1's entries with it
  auto changed = log.take();
  ASSERT_EQ(changed.size(), 4u);
  EXPECT_EQ(changed[0], "-vni 10") << "the older map goes first";
  EXPECT_THAT(std::vector<std::string>(changed.begin() + 1, changed.end()),
              UnorderedElementsAre("-vniVti 10/Vx1", "-vniVti 50/Vx1", "-vniVti 20/Vx2"));
  EXPECT_THAT(trace.take(), ElementsAre("VlanToVniMapToP2pSm::cleanup()"));
  // The publisher left standing no longer hears the input of the one destroyed.
  map(300, 30, "evpn", 0, vxlan2);
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());
}

// The dispatch would end the process on these exceptions: the tests silence it and call the
// handlers themselves.
TEST_F(VlanVniChildren, VniNoneIsRefusedByThePublisherAfterTheStaleVniIsRetiredAndByTheApplier) {
  map(100, 10);
  pub = publisher(primary);
  pub->hasNotificationActiveIs(false);
  vti->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(100),
                              Vxlan::VniSourcePair(::Vxlan1, "evpn", Vxlan::VniExtOrNone()));
  try {
    pub->handleVlanToVniMap(Bridging::ExtendedVlanId(100));
    ADD_FAILURE() << "a pair with VNI none was accepted";
  } catch (Brix::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Vxlan::VniExt::value < Vxlan::VniExt::min or > Vxlan::VniExt::max not allowed");
  }
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());

  app = applier(secondary);
  app->hasNotificationActiveIs(false);
  recv->vniToDynVlanMapIs(Vxlan::VniExtOrNone(), Bridging::VlanIdOrNone(5));
  Trace trace;
  EXPECT_THROW(app->handleVniToDynVlanMap(Vxlan::VniExtOrNone()), Brix::RangeException);
  EXPECT_THROW(app->handleVniVtiToDynVlanMap(), Brix::RangeException);
  // The entry is traced before the pair is formed, and nothing after.
  EXPECT_THAT(trace.take(), ElementsAre("VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(4294967295)",
                                        "VniVtiToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap()"));
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  recv->vniToDynVlanMapDel(Vxlan::VniExtOrNone());
}

// ---- the applier ----

TEST_F(VlanVniChildren, ApplierKeyByKeyTracesAndTheTeardownWithdrawsTheOlderMapFirst) {
  local->vniToDynVlanMapIs(Vxlan::VniExtOrNone(7), Bridging::VlanIdOrNone(70));
  // Left by an earlier applier; the all-keys pass keeps it, since the older map has VNI 10.
  local->vniVtiToDynVlanMapIs(key(10, vxlan2), Bridging::ExtendedVlanId(100));
  peerVni(10, 50);
  Trace trace;
  app = applier(primary);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx2"}, 100}, {{10, "Vx1"}, 50}}));
  // Key by key, another VTI never consults the older map.
  recv->vniVtiToDynVlanMapIs(key(10, vxlan2), Bridging::ExtendedVlanId(150));
  recv->vniVtiToDynVlanMapDel(key(10, vxlan2));
  EXPECT_THAT(trace.take(), Contains(" Del VNI/VTI (10, Vx2)"));
  local->vniVtiToDynVlanMapIs(key(0), Bridging::ExtendedVlanId(100));
  peerVni(0, 300);
  EXPECT_THAT(trace.take(),
              ElementsAre("VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(0)",
                          "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(0, Vx1)",
                          "VniToDynVlanMapToCorestateSm::handleVniVtiToDynVlanMap(0) return Delete VNI 0 on primary",
                          "VniToDynVlanMapToCorestateSm::handleVniToDynVlanMap(0) return"));
  MapChanges log(*local);
  app = nullptr;
  EXPECT_THAT(log.take(), ElementsAre("-vni 7", "-vniVti 10/Vx1")) << "the older map goes first";
  // Gone for good: the peer's changes reach nobody.
  recv->vniVtiToDynVlanMapIs(key(50), Bridging::ExtendedVlanId(500));
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
}

// ---- level-triggered ----

// One change of a VTI's map that keeps it one-to-one: a VLAN that holds the VNI wanted
// elsewhere gives it up first, as a change of its own. Only sources the role may share.
void changeMapping(Vxlan::VtiStatus& vti, std::map<std::uint16_t, std::uint32_t>& model, Mlag::MlagState state) {
  auto const vlan = *rc::gen::element<std::uint16_t>(1, 2, 100, 4094, 4095, 5000);
  if (*rc::gen::inRange(0, 4) == 0) {
    vti.extendedVlanToVniMapDel(Bridging::ExtendedVlanId(vlan));
    model.erase(vlan);
    return;
  }
  auto const vni = *rc::gen::element<std::uint32_t>(0, 1, 10, 20, Vxlan::VniExt::max);
  auto const source = state == primary ? *rc::gen::element<std::string>("static", "evpn", "controller", "")
                                       : *rc::gen::element<std::string>("evpn", "controller", "");
  auto const flags = *rc::gen::element<std::uint8_t>(0, 1);
  for (auto it = model.begin(); it != model.end(); ++it) {
    if (it->first != vlan && it->second == vni) {
      vti.extendedVlanToVniMapDel(Bridging::ExtendedVlanId(it->first));
      model.erase(it);
      break;
    }
  }
  vti.extendedVlanToVniMapIs(Bridging::ExtendedVlanId(vlan), mapping(vni, source, flags));
  model[vlan] = vni;
}

// One change of what the peer published, in either collection; VLAN 0 entries included.
void changePeer(Mlag::VxlanStatus& recv) {
  auto const vni = *rc::gen::element<std::uint32_t>(0, 1, 10, 20);
  switch (*rc::gen::inRange(0, 4)) {
    case 0:
      recv.vniVtiToDynVlanMapIs(key(vni, *rc::gen::element(::Vxlan1, vxlan2)),
                                Bridging::ExtendedVlanId(*rc::gen::element<std::uint16_t>(0, 1, 100, 5000)));
      break;
    case 1:
      recv.vniVtiToDynVlanMapDel(key(vni, *rc::gen::element(::Vxlan1, vxlan2)));
      break;
    case 2:
      recv.vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni),
                             Bridging::VlanIdOrNone(*rc::gen::element<std::uint16_t>(0, 1, 100, 4094)));
      break;
    default:
      recv.vniToDynVlanMapDel(Vxlan::VniExtOrNone(vni));
      break;
  }
}

RC_GTEST_PROP(VlanToVniProperty, APublisherEndsWhereAFreshOneStarts, ()) {
  leavesNoNodes([&] {
    auto const state = *rc::gen::element(primary, secondary);
    auto vti = Brix::newNode<Vxlan::VtiStatus>(::Vxlan1);
    auto sent = Brix::newNode<Mlag::VxlanStatus>();
    std::map<std::uint16_t, std::uint32_t> model;
    for (int n = *rc::gen::inRange(0, 6); n > 0; --n) changeMapping(*vti, model, state);
    auto sm = MlagVxlan::vlanToVniMapToP2pSmFactory(::Vxlan1, vti, sent, state);
    for (int n = *rc::gen::inRange(0, 40); n > 0; --n) changeMapping(*vti, model, state);

    auto freshSent = Brix::newNode<Mlag::VxlanStatus>();
    auto freshSm = MlagVxlan::vlanToVniMapToP2pSmFactory(::Vxlan1, vti, freshSent, state);
    RC_ASSERT(vniVtiMap(*sent) == vniVtiMap(*freshSent));
    RC_ASSERT(vniMap(*sent) == vniMap(*freshSent));
    RC_ASSERT(*sent == *freshSent);
  });
}

// What an applier makes of the peer's publication: the older map goes to Vxlan1, a per-VTI entry
// wins over it unless its VLAN is 0, and only a primary holds back VNI 0.
VniVtiMap applied(Mlag::VxlanStatus const& recv, Mlag::MlagState state) {
  VniVtiMap out;
  for (auto const& [vni, vlan] : vniMap(recv)) out[{vni, "Vx1"}] = vlan;
  for (auto const& [k, vlan] : vniVtiMap(recv)) {
    if (vlan != 0) out[k] = vlan;
  }
  std::erase_if(out, [&](auto const& e) { return e.second == 0 || (state == primary && e.first.first == 0); });
  return out;
}

RC_GTEST_PROP(VlanToVniProperty, AnApplierEndsWhereAFreshOneStarts, ()) {
  leavesNoNodes([&] {
    auto const state = *rc::gen::element(primary, secondary, Mlag::MlagState::negotiating);
    auto recv = Brix::newNode<Mlag::VxlanStatus>();
    auto local = Brix::newNode<Mlag::VxlanStatus>();
    for (int n = *rc::gen::inRange(0, 6); n > 0; --n) changePeer(*recv);
    auto sm = MlagVxlan::vniToDynVlanMapToCorestateSmFactory(recv, local, state);
    for (int n = *rc::gen::inRange(0, 40); n > 0; --n) changePeer(*recv);

    // The fresh one starts where an earlier applier left entries of its own.
    auto freshLocal = Brix::newNode<Mlag::VxlanStatus>();
    freshLocal->vniVtiToDynVlanMapIs(key(0), Bridging::ExtendedVlanId(100));
    freshLocal->vniVtiToDynVlanMapIs(key(30, vxlan2), Bridging::ExtendedVlanId(300));
    auto freshSm = MlagVxlan::vniToDynVlanMapToCorestateSmFactory(recv, freshLocal, state);
    RC_ASSERT(vniVtiMap(*local) == vniVtiMap(*freshLocal));
    RC_ASSERT(*local == *freshLocal);
    RC_ASSERT(vniVtiMap(*local) == applied(*recv, state));
    RC_ASSERT(vniMap(*local).empty());  // the older map is never written here
    sm = nullptr;
    RC_ASSERT(vniVtiMap(*local).empty());
  });
}

}  // namespace
}  // namespace VlanVniTest
