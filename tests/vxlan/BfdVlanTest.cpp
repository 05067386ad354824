// BFD state and shared dynamic VLANs between the roles: the secondary's rebuilds and kept keys,
// the primary's children per BFD peer and its reactors per VTEP status entry, the order of the
// roles' handlers; the primary following the peer's shared VLANs, and the secondary keeping its
// set from the VLAN configuration by either input, with damage in the flat table.
#include <optional>

#include "vxlan/Harness.h"

namespace {

using namespace TestSupport;
using Status = Mlag::VxlanStatus;
using Row = VxlanController::BfdPeerStatusV2;
using Snapshot = std::map<std::string, std::string>;  // key to value, both as their text forms

auto const asText = [](auto const& v) { return str(v); };
template <class It, class F = decltype(asText)>
Snapshot snap(It it, F f = asText) {
  return entries<Snapshot>(it, [&](auto const& n) { return std::pair(str(n.key), f(n.value)); });
}
Snapshot rows(Status const& s, bool mlag) {
  return mlag ? snap(s.mlagBfdPeerStatusIter()) : snap(s.bfdPeerStatusIter());
}
Snapshot vxlanBfd(Status const& s) {
  return snap(s.allVxlanBfdPeerStatusIter(), [](auto const& v) { return str(v->operState()); });
}
// Every VLAN from `from` on but those of `out`.
VlanSet allBut(VlanSet const& out = {}, std::uint16_t from = 1) {
  auto s = vlanRange(from, 4094);
  for (auto v : out) s.erase(v);
  return s;
}

class Fixture : public RoleTest {
 protected:
  Fixture() : RoleTest(noVtiDir | noArpInput) {}
  Trace trace{1u << 5 | 1u << 6 | 1u << 8};
};

Lanx::IpAddr ip(std::uint8_t last) { return Lanx::IpAddr(192, 0, 2, last); }
Row row(char const* label, std::uint8_t last, std::uint8_t state = 1) {
  return Row(Brix::String(label), ip(last), state, state);
}
Mlag::VtiVtep vtiVtep(char const* intf, char const* addr) {
  return Mlag::VtiVtep(Lanx::IntfId(intf), Lanx::IpGenAddr::parse(addr));
}
std::string key(char const* intf, char const* addr) { return str(vtiVtep(intf, addr)); }
Bfd::Peer peer(std::uint32_t type, char const* addr, std::uint64_t session = 1) {
  return Bfd::Peer(Brix::String("default"), Lanx::IntfId("Vxlan1"), session, type, Lanx::IpGenAddr::parse(addr),
                   Lanx::IpGenAddr::parse("10.0.0.100"));
}

using SecondaryBfdTest = Fixture;
using PrimaryBfdTest = Fixture;

TEST_F(SecondaryBfdTest, FirstRunRebuildsBothRowCollectionsThenRowsFollowThePeerOneByOne) {
  // The two row collections behave alike but for their words.
  struct RowKind {
    bool mlag;
    std::string add, del, exit;
  };
  for (auto const& k :
       {RowKind{false, " SecondarySm::handleVtepBfdStatus Add BFD peer status ",
                " SecondarySm::handleVtepBfdStatus Del BFD peer status ", "SecondarySm::handleVtepBfdStatus() return"},
        RowKind{true, " SecondarySm::handleMlagBfdPeerStatus Add MLAG BFD peer status ",
                " SecondarySm::handleMlagBfdPeerStatus Del MLAG BFD peer status ",
                "SecondarySm::handleMlagBfdPeerStatus() reuturn"}}) {
    SCOPED_TRACE(k.mlag ? "mlag" : "vtep");
    auto rowIs = [&](Status& s, Row const& r) { k.mlag ? s.mlagBfdPeerStatusIs(r) : s.bfdPeerStatusIs(r); };
    rowIs(*local, row("stale", 9));  // a former life's row: goes without a trace of its own
    rowIs(*local, row("kept", 1, 2));
    rowIs(*recv, row("kept", 1));
    rowIs(*recv, row("new", 2));
    trace.clear();
    auto sm = secondary();
    EXPECT_EQ(rows(*local, k.mlag), rows(*recv, k.mlag));
    EXPECT_EQ(trace.count(k.del, true), 0u);
    EXPECT_EQ(trace.count(k.add, true), 2u);
    EXPECT_EQ(trace.levelOf(k.add + "192.0.2.2"), 6);
    EXPECT_EQ(trace.levelOf(k.exit), 5);
    // Changed, deleted, and never there: a row carries its key, so only a missing one reads as the default.
    struct Step {
      std::function<void()> change;
      std::string line;
    };
    for (auto const& s :
         {Step{[&] { rowIs(*recv, row("kept", 1, 0)); }, k.add + "192.0.2.1"},
          Step{[&] { (void)(k.mlag ? recv->mlagBfdPeerStatusDel(ip(1)) : recv->bfdPeerStatusDel(ip(1))); },
               k.del + "192.0.2.1"},
          Step{[&] { sm->handleVtepBfdStatus(ip(7)), sm->handleMlagBfdPeerStatus(ip(7)); }, k.del + "192.0.2.7"}}) {
      SCOPED_TRACE(s.line);
      trace.clear();
      s.change();
      EXPECT_EQ(trace.count(s.line), 1u);
      EXPECT_EQ(rows(*local, k.mlag), rows(*recv, k.mlag));
    }
    trace.clear();
    sm = nullptr;
    EXPECT_THAT(rows(*local, k.mlag), IsEmpty());
    EXPECT_EQ(trace.count(k.exit), 0u) << "the cleanup runs no handler";
    recv->bfdPeerStatusDelAll();
    recv->mlagBfdPeerStatusDelAll();
  }
}

TEST_F(SecondaryBfdTest, EachPeerEntityGetsAChildThatCopiesItsStateAndWithdrawsItsKey) {
  auto const a = vtiVtep("Vxlan1", "10.0.0.1"), b = vtiVtep("Vxlan2", "10.0.0.1"),
             v6 = vtiVtep("Vxlan1", "2001:db8::1"), keptStale = vtiVtep("Vxlan9", "10.9.9.9");
  local->allVxlanBfdPeerStatusIs(keptStale)->operStateIs(Bfd::OperState::up);  // no child stands for it
  recv->allVxlanBfdPeerStatusIs(a)->operStateIs(Bfd::OperState::up);
  auto sm = secondary();
  // Two keys that differ only in the VTI: two children, traces that look alike.
  recv->allVxlanBfdPeerStatusIs(b)->operStateIs(Bfd::OperState::down);
  recv->allVxlanBfdPeerStatusIs(v6)->operStateIs(Bfd::OperState::init);
  EXPECT_EQ(trace.count(" Add/Udp peer Vtep 2001:db8::1, operState: init"), 1u);
  trace.clear();
  recv->allVxlanBfdPeerStatus(a)->operStateIs(Bfd::OperState::adminDown);
  EXPECT_EQ(vxlanBfd(*local), (Snapshot{{key("Vxlan1", "10.0.0.1"), "adminDown"},
                                        {key("Vxlan2", "10.0.0.1"), "down"},
                                        {key("Vxlan1", "2001:db8::1"), "init"},
                                        {key("Vxlan9", "10.9.9.9"), "up"}}));
  EXPECT_THAT(trace.texts(),
              ElementsAre("VxlanBfdStatusSm::handleOperState()", " Add/Udp peer Vtep 10.0.0.1, operState: adminDown"));
  // The same entity again: the child stays, only the two level-5 lines.
  trace.clear();
  sm->handleVxlanBfdPeerStatus(a);
  EXPECT_THAT(trace.texts(), ElementsAre("SecondarySm::handleVxlanBfdPeerStatus(10.0.0.1)",
                                         "SecondarySm::handleVxlanBfdPeerStatus(10.0.0.1) return"));
  // Another entity under a live key: the old child withdraws, the new one publishes.
  auto replacement = Brix::newNode<Mlag::VxlanBfdStatus>(b);
  replacement->operStateIs(Bfd::OperState::up);
  trace.clear();
  recv->allVxlanBfdPeerStatusIs(b, replacement);
  EXPECT_LT(trace.indexOf("VxlanBfdStatusSm::doCleanup()"),
            trace.indexOf(" Add/Udp peer Vtep 10.0.0.1, operState: up"));
  EXPECT_EQ(local->allVxlanBfdPeerStatus(b)->operState(), Bfd::OperState::up);
  // A key that goes: its child's cleanup deletes it first.
  trace.clear();
  (void)recv->allVxlanBfdPeerStatusDel(v6);
  EXPECT_EQ(sm->vxlanBfdStatusSm(v6), nullptr);
  EXPECT_LT(trace.indexOf("VxlanBfdStatusSm::doCleanup()"),
            trace.indexOf(" Del peer Vtep 2001:db8::1, operState: init"));
  // A fresh role over a peer that dropped a key while none was listening: the stale child of the
  // old role is gone with it, the key without a child stays on purpose.
  sm = nullptr;
  EXPECT_EQ(vxlanBfd(*local), (Snapshot{{key("Vxlan9", "10.9.9.9"), "up"}}));
  (void)recv->allVxlanBfdPeerStatusDel(a);
  sm = secondary();
  EXPECT_EQ(vxlanBfd(*local), (Snapshot{{key("Vxlan2", "10.0.0.1"), "up"}, {key("Vxlan9", "10.9.9.9"), "up"}}));
}

// Several entries of each kind: after the first runs each collection holds what its kind's
// entries report, whichever entry's first run came last; a former life's keys that no entry
// reports go. An MLAG entry's name begins with "Vxlan" and ends with "-mlag".
TEST_F(PrimaryBfdTest, AfterTheFirstRunsEachCollectionHoldsWhatItsKindOfEntriesReport) {
  for (char const* n : {"Vxlan1-mlag", "Vxlan-mlag", "Vxlan10-mlag"}) {
    EXPECT_TRUE(MlagVxlan::PrimarySm::NestedSm_VtepStatus::isMlagEntryName(n)) << n;
  }
  for (char const* n : {"Vxlan1", "Other-mlag", "vxlan1-mlag", "Vxlan1-mlagX", "-mlag", ""}) {
    EXPECT_FALSE(MlagVxlan::PrimarySm::NestedSm_VtepStatus::isMlagEntryName(n)) << n;
  }
  sent->bfdPeerStatusIs(row("former", 99));
  sent->mlagBfdPeerStatusIs(row("former", 98));
  sent->bfdPeerStatusIs(row("old", 1, 0));  // reported again, with another state
  auto entry = [&](char const* name, std::initializer_list<Row> rs) {
    auto e = vtepDir->vtepStatusV2Is(Brix::String(name));
    for (auto const& r : rs) e->bfdPeerStatusIs(r);
    return e;
  };
  auto plain = entry("Vxlan1", {row("a", 1), row("b", 2)});
  auto mlag = entry("Vxlan1-mlag", {row("m", 3)});
  auto other = entry("Other-mlag", {row("c", 4)});
  auto sm = primary();
  Snapshot plainRows = snap(plain->bfdPeerStatusIter());
  plainRows.merge(snap(other->bfdPeerStatusIter()));
  EXPECT_EQ(rows(*sent, false), plainRows);
  EXPECT_EQ(rows(*sent, true), snap(mlag->bfdPeerStatusIter()));
  EXPECT_EQ(trace.count("Del bfd status") + trace.count("Del Mlag bfd status"), 2u) << "the two former keys";
  // One key at a time; a record equal to the default is a deletion.
  auto step = [&](auto change, char const* line) {
    trace.clear();
    change();
    EXPECT_EQ(trace.count(line), 1u) << line;
    EXPECT_EQ(trace.levelOf(line), 6) << line;
  };
  step([&] { plain->bfdPeerStatusIs(row("a", 1, 2)); }, "Add bfd status");
  step([&] { (void)plain->bfdPeerStatusDel(ip(2)); }, "Del bfd status");
  step([&] { mlag->bfdPeerStatusIs(row("n", 5)); }, "Add Mlag bfd status");
  step([&] { plain->bfdPeerStatusIs(Row()); }, "Del bfd status");
  EXPECT_FALSE(sent->bfdPeerStatusHas(Lanx::IpAddr()));
  EXPECT_EQ(rows(*sent, true), snap(mlag->bfdPeerStatusIter()));
  // An entry that goes empties its kind's collection whole, what the other entry published too.
  trace.clear();
  (void)vtepDir->vtepStatusV2Del(Brix::String("Other-mlag"));
  EXPECT_THAT(rows(*sent, false), IsEmpty());
  EXPECT_THAT(trace.texts(), ElementsAre("PrimarySm::VokVtepStatus(Other-mlag)::cleanup()", " Clear BFD Peer Status",
                                         "PrimarySm::VokVtepStatus(Other-mlag)::cleanup() return"));
  // An entry replaced under its name: its reactor follows the new entity and runs nothing at
  // the rebind; the new entity's changes are heard, the old one's no more.
  trace.clear();
  auto replacement = Brix::newNode<VxlanController::VtepStatusV2>(Brix::String("Vxlan1-mlag"));
  replacement->bfdPeerStatusIs(row("r", 6));
  vtepDir->vtepStatusV2Is(Brix::String("Vxlan1-mlag"), replacement);
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_EQ(rows(*sent, true), snap(mlag->bfdPeerStatusIter()));
  replacement->bfdPeerStatusIs(row("s", 7));
  mlag->bfdPeerStatusIs(row("t", 8));
  EXPECT_TRUE(sent->mlagBfdPeerStatusHas(ip(7)));
  EXPECT_FALSE(sent->mlagBfdPeerStatusHas(ip(6)));
  EXPECT_FALSE(sent->mlagBfdPeerStatusHas(ip(8)));
  // The role's end clears both through the role cleanup, then each reactor clears its kind.
  sm = nullptr;
  EXPECT_LT(trace.indexOf("PrimarySm::doCleanup() return"),
            trace.indexOf("PrimarySm::VokVtepStatus(Vxlan1-mlag)::cleanup()"));
  EXPECT_EQ(trace.count(" Clear Mlag BFD Peer Status"), 1u);
}

TEST_F(PrimaryBfdTest, EachVxlanTunnelPeerHasAChildThatPublishesItsStateUnderItsVtiAndAddress) {
  auto const tunnel = peer(3, "10.0.0.1"), twin = peer(3, "10.0.0.1", 2), v6 = peer(3, "2001:db8::1"),
             other = peer(1, "10.0.0.9");
  bfdPeer->peerStatusIs(tunnel)->operStateIs(Bfd::OperState::up);
  bfdPeer->peerStatusIs(other)->operStateIs(Bfd::OperState::up);
  sent->allVxlanBfdPeerStatusIs(vtiVtep("Vxlan7", "10.7.7.7"));  // a former life's: no child, stays
  auto sm = primary();
  EXPECT_EQ(trace.count("PrimarySm::handleBfdPeerStatus(10.0.0.9) return Non Vxlan tunnel"), 1u);
  // Two peers that differ only in the session share one entry.
  bfdPeer->peerStatusIs(twin)->operStateIs(Bfd::OperState::down);
  bfdPeer->peerStatusIs(v6)->operStateIs(Bfd::OperState::init);
  EXPECT_EQ(vxlanBfd(*sent), (Snapshot{{key("Vxlan1", "10.0.0.1"), "down"},
                                       {key("Vxlan1", "2001:db8::1"), "init"},
                                       {key("Vxlan7", "10.7.7.7"), "adminDown"}}));
  EXPECT_EQ(trace.count("Bfd peer IP: 2001:db8::1 peer status: init"), 1u);
  trace.clear();
  bfdPeer->peerStatus(v6)->operStateIs(Bfd::OperState::up);
  EXPECT_EQ(sent->allVxlanBfdPeerStatus(vtiVtep("Vxlan1", "2001:db8::1"))->operState(), Bfd::OperState::up);
  EXPECT_EQ(trace.count("BfdPeerStatusSm(2001:db8::1)::handleBfdPeerStatus()"), 1u);
  // A peer that goes: its cleanup runs before the child goes, and takes the shared entry along.
  trace.clear();
  (void)bfdPeer->peerStatusDel(twin);
  EXPECT_EQ(sm->bfdPeerStatusSm(twin), nullptr);
  EXPECT_FALSE(sent->allVxlanBfdPeerStatusHas(vtiVtep("Vxlan1", "10.0.0.1")));
  EXPECT_LT(trace.indexOf("BfdPeerStatusSm(10.0.0.1)::doCleanup() return"),
            trace.indexOf("PrimarySm::handleBfdPeerStatus(10.0.0.1) return"));
  (void)bfdPeer->peerStatusDel(other);
  EXPECT_EQ(trace.count("PrimarySm::handleBfdPeerStatus(10.0.0.9) return Non Vxlan tunnel"), 1u);
  // The BFD agent's entry made again under a live peer: the child follows the new entry.
  auto again = Brix::newNode<Bfd::PeerStatus>(tunnel);
  again->operStateIs(Bfd::OperState::adminDown);
  bfdPeer->peerStatusIs(tunnel, again);
  EXPECT_EQ(sent->allVxlanBfdPeerStatus(vtiVtep("Vxlan1", "10.0.0.1"))->operState(), Bfd::OperState::adminDown);
  // The role's end withdraws each child's entry, and only those.
  sm = nullptr;
  EXPECT_EQ(vxlanBfd(*sent), (Snapshot{{key("Vxlan7", "10.7.7.7"), "adminDown"}}));
}

TEST_F(PrimaryBfdTest, FirstRunsAndCleanupsRunTheirHandlersInTheirOrder) {
  vtepDir->vtepStatusV2Is(Brix::String("Vxlan1"))->bfdPeerStatusIs(row("a", 1));
  bfdPeer->peerStatusIs(peer(3, "10.0.0.1"))->operStateIs(Bfd::OperState::up);
  recv->allVxlanBfdPeerStatusIs(vtiVtep("Vxlan1", "10.0.0.1"))->operStateIs(Bfd::OperState::up);
  bridgingConfig->vlanConfigIs(Bridging::VlanId(20))->configSourceIs(Brix::String("cli"));
  flatDir->vlanConfigIs(Bridging::VlanId(20),
                        Bridging::Flat::VlanConfigFlat(Bridging::VlanId(20), Swix::FString("cli")));
  (void)primary();
  trace.expectInOrder({"PrimarySm::VokVtepStatus(Vxlan1)::handleInitialized() return", "PrimarySm::handleInitialized()",
                       "PrimarySm::handleBfdPeerStatus()", "BfdPeerStatusSm(10.0.0.1)::handleInitialized() return",
                       "PrimarySm::handleBfdPeerStatus() return", "PrimarySm::handleSharedDynVlan()",
                       "PrimarySm::handleSharedDynVlan() return", "VlanToVniMapSm::handleInitialized()",
                       "PrimarySm::handleInitialized() return", "PrimarySm::doCleanup()",
                       "BfdPeerStatusSm(10.0.0.1)::doCleanup()", "PrimarySm::doCleanup() return",
                       "PrimarySm::VokVtepStatus(Vxlan1)::cleanup()"});
  EXPECT_EQ(sent->allVxlanBfdPeerStatusCount(), 0u);
  for (bool flat : {true, false}) {
    SCOPED_TRACE(flat ? "flat" : "entities");
    MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(flat);
    sent->sharedDynVlanDelAll();
    trace.clear();
    (void)secondary();
    std::string const child = "SecondarySm::VokVlanConfig(20)::";
    trace.expectInOrder({"SecondarySm::handleInitialized()", " Reset shared dyn vlans",
                         flat ? "void MlagVxlan::SecondarySm::handleVlanConfigFlat(Bridging::VlanId) 20"
                              : child + "handleInitialized()",
                         " (20)::handleVlanSource Del shared dyn vlan 20", "SecondarySm::handleVtepBfdStatus()",
                         "SecondarySm::handleMlagBfdPeerStatus()", "SecondarySm::handleVxlanBfdPeerStatus()",
                         "VxlanBfdStatusSm::handleInitialized()", "SecondarySm::handleVxlanBfdPeerStatus() return",
                         "VlanToVniMapSm::handleInitialized()", "SecondarySm::handleInitialized() return",
                         "SecondarySm::doCleanup()", "VxlanBfdStatusSm::doCleanup()",
                         "SecondarySm::doCleanup() return"});
    // Only the entities' road has a child per VLAN, and it goes after the role's own cleanup.
    EXPECT_EQ(trace.indexOf(child + "vlanConfigSourceSmCleanup()") > trace.indexOf("SecondarySm::doCleanup() return"),
              !flat);
  }
  MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(std::nullopt);
}

TEST_F(Fixture, PrimaryFirstRunMakesTheLocalSetThePeersThenFollowsItVlanByVlan) {
  // A full local set against a peer with 93 fewer, one of them present as false.
  for (std::uint16_t v = 1; v <= 4094; ++v) local->sharedDynVlanIs(Bridging::VlanId(v), true);
  VlanSet peer = allBut({}, 95);
  for (auto v : peer) recv->sharedDynVlanIs(Bridging::VlanId(v), true);
  recv->sharedDynVlanIs(Bridging::VlanId(1), false);
  // A VTEP entry's reactor runs before the role's first run: its write lets the peer share VLAN 3
  // then, and that notification is dropped; the first run's walk covers it.
  vtepDir->vtepStatusV2Is(Brix::String("Vxlan1"))->bfdPeerStatusIs(row("a", 1));
  bool early = false;
  TestSupport::PublicationRecorder beforeFirstRun(*sent, [&](auto const&) {
    if (!std::exchange(early, true)) recv->sharedDynVlanIs(Bridging::VlanId(3), true);
  });
  peer.insert(3);
  auto sm = primary();
  ASSERT_TRUE(early);
  EXPECT_LT(trace.indexOf("PrimarySm::handleInitialized()"), trace.indexOf("PrimarySm::handleSharedDynVlan(3)"));
  EXPECT_EQ(shared(*local, true), peer);
  EXPECT_EQ(local->sharedDynVlanCount(), peer.size()) << "no key left with false";
  EXPECT_EQ(trace.count(" SharedDynVlan before 4094"), 1u);
  EXPECT_EQ(trace.count(" SharedDynVlan after 4001"), 1u);
  EXPECT_EQ(trace.count(" Del shared dynVlan", true), 94u) << "93 in the local walk, VLAN 1 again in the peer's";
  EXPECT_EQ(trace.count(" Added shared dynVlan", true), 0u);
  EXPECT_LT(trace.indexOf(" Processing localVxStatus"), trace.indexOf(" Del shared dynVlan 1"));
  EXPECT_LT(trace.indexOf(" Del shared dynVlan 94"), trace.indexOf(" Processing recvVxStatus"));

  enum class Do { set, del, direct };  // direct: a notification with no change behind it
  struct Step {
    std::uint16_t vlan;
    Do what;
    bool value;
    char const* line;  // the level 6 line, or none
    bool notified = true;
  };
  for (auto const& s : {Step{7, Do::set, true, " Added shared dynVlan 7"}, Step{7, Do::set, true, nullptr, false},
                        Step{7, Do::direct, true, nullptr}, Step{7, Do::set, false, " Del shared dynVlan 7"},
                        Step{100, Do::del, false, " Del shared dynVlan 100"},
                        Step{100, Do::direct, false, " Del shared dynVlan 100"}}) {
    SCOPED_TRACE(s.vlan);
    trace.clear();
    if (s.what == Do::set) recv->sharedDynVlanIs(Bridging::VlanId(s.vlan), s.value);
    if (s.what == Do::del) (void)recv->sharedDynVlanDel(Bridging::VlanId(s.vlan));
    if (s.what == Do::direct) sm->handleSharedDynVlan(Bridging::VlanId(s.vlan));
    s.value ? (void)peer.insert(s.vlan) : (void)peer.erase(s.vlan);
    EXPECT_EQ(shared(*local, true), peer);
    std::string const fn = "PrimarySm::handleSharedDynVlan(" + std::to_string(s.vlan) + ")";
    std::vector<std::string> expected{fn, fn + " return"};
    if (s.line) expected.insert(expected.begin() + 1, s.line);
    EXPECT_EQ(trace.texts(), s.notified ? expected : std::vector<std::string>{});
    EXPECT_EQ(trace.levelOf(s.line ? s.line : ""), s.line ? 6 : -1);
  }
  sm = nullptr;
  EXPECT_EQ(shared(*local, true), allBut());
}

// The VLAN configuration by one input, the one the toggle picks.
class VlanConfigFixture : public Fixture {
 protected:
  explicit VlanConfigFixture(bool flat) : flat(flat) {
    MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(flat);
  }
  ~VlanConfigFixture() override { MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(std::nullopt); }
  // Configures `vlan` by `source` in the live input (or in the other one).
  void configure(std::uint16_t vlan, char const* source, bool live = true) {
    Bridging::VlanId id(vlan);
    if (flat != live) return (void)bridgingConfig->vlanConfigIs(id)->configSourceIs(Brix::String(source));
    auto r = flatDir->vlanConfig().readOrDefault(id);
    r.vlanIdIs(id);
    r.configSourceIs(Swix::FString(source));
    flatDir->vlanConfigIs(id, r);
  }
  void unconfigure(std::uint16_t vlan) {
    flat ? (void)flatDir->vlanConfigDel(Bridging::VlanId(vlan))
         : (void)bridgingConfig->vlanConfigDel(Bridging::VlanId(vlan));
  }
  bool const flat;
};

class SecondaryVlanConfigTest : public VlanConfigFixture, public ::testing::WithParamInterface<bool> {
 protected:
  SecondaryVlanConfigTest() : VlanConfigFixture(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(ByInput, SecondaryVlanConfigTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "FlatTable" : "Entities"; });

TEST_P(SecondaryVlanConfigTest, AVlanLeavesBothSetsWhileASourceOutsideTheListConfiguresIt) {
  for (char const* s : {"static", "controller", "evpn", "mlag", "default"}) {
    EXPECT_TRUE(MlagVxlan::SecondarySm::isShareableVlanSource(s)) << s;
  }
  for (char const* s : {"", "cli", "Default", "unknown", "default "}) {
    EXPECT_FALSE(MlagVxlan::SecondarySm::isShareableVlanSource(s)) << s;
  }
  configure(10, "default");
  configure(20, "cli");
  configure(30, "evpn");
  configure(40, "cli", false);  // the other input: never read
  auto sm = secondary();
  EXPECT_EQ(shared(*sent, true), allBut({20}));
  EXPECT_EQ(shared(*local, true), (VlanSet{10, 30})) << "localVxStatus gets only what the configuration says";
  EXPECT_EQ(sm->vlanConfigConfigSourceSmCount(), flat ? 0u : 3u);
  EXPECT_EQ(trace.levelOf(" (20)::handleVlanSource Del shared dyn vlan 20"), 6);
  EXPECT_EQ(trace.levelOf("void MlagVxlan::SecondarySm::handleVlanSource(Bridging::VlanId, const String&) Add "
                          "shared dyn vlan10"),
            8);

  struct Step {
    std::function<void()> change;
    VlanSet notShared;
  };
  for (auto const& s : {Step{[&] { configure(20, "default"); }, {}}, Step{[&] { configure(10, "cli"); }, {10}},
                        Step{[&] { unconfigure(10); }, {}}, Step{[&] { configure(50, "cli"); }, {50}},
                        Step{[&] { configure(60, "cli", false), unconfigure(40); }, {50}}}) {
    s.change();
    EXPECT_EQ(shared(*sent, true), allBut(s.notShared));
    for (std::uint16_t v : {10, 20}) EXPECT_EQ(shared(*local, true).count(v), 1u - s.notShared.count(v)) << v;
  }
  if (!flat) {
    // A VLAN's entity made again in place, heard as one change: the old child ends first and
    // gives the VLAN back, then a child of the new entity reads its source.
    auto again = Brix::newNode<Bridging::VlanConfig>(Bridging::VlanId(30));
    again->configSourceIs(Brix::String("cli"));
    bridgingConfig->vlanConfigIs(Bridging::VlanId(30), again);
    EXPECT_EQ(sm->vlanConfigConfigSourceSm(Bridging::VlanId(30))->vlanConfig(), again);
    EXPECT_EQ(shared(*sent, true), allBut({30, 50}));
    EXPECT_EQ(trace.count("void MlagVxlan::SecondarySm::vlanConfigSourceSmCleanup(Bridging::VlanId) return(): 30"), 1u);
  }
  // A VLAN that goes comes back with the three kinds of trace, whatever its last source.
  EXPECT_EQ(trace.levelOf("SecondarySm::VokVlanConfig(10)::vlanConfigSourceSmCleanup()"), 5);
  EXPECT_EQ(trace.count("void MlagVxlan::SecondarySm::vlanConfigSourceSmCleanup(Bridging::VlanId) return(): 10"), 1u);
  // The role's end fills both sets, and the children's ends write their VLANs once more.
  trace.clear();
  sm = nullptr;
  EXPECT_EQ(shared(*sent, true), allBut());
  EXPECT_EQ(shared(*local, true), allBut());
  EXPECT_EQ(trace.count("SecondarySm::VokVlanConfig(50)::vlanConfigSourceSmCleanup()"), flat ? 0u : 1u);
}

class FlatVlanConfigTest : public VlanConfigFixture {
 protected:
  FlatVlanConfigTest() : VlanConfigFixture(true) {}
};

TEST_F(FlatVlanConfigTest, OnlyAChangedSourceIsWrittenAndAVlanInNeitherPlaceIsSharedAgain) {
  configure(10, "cli");
  auto sm = secondary();
  TestSupport::PublicationRecorder pubs(*sent);
  // Another field of the row changes: one level 8 line, no write.
  auto r = flatDir->vlanConfig().readOrDefault(Bridging::VlanId(10));
  r.priorityIs(7);
  trace.clear();
  flatDir->vlanConfigIs(Bridging::VlanId(10), r);
  EXPECT_EQ(trace.texts(),
            std::vector<std::string>{"void MlagVxlan::SecondarySm::handleVlanConfigFlat(Bridging::VlanId) 10"});
  EXPECT_EQ(pubs.count(Status::sharedDynVlanField), 0u);
  // A VLAN in neither the table nor the bookkeeping: shared again all the same.
  (void)sent->sharedDynVlanDel(Bridging::VlanId(99));
  sm->handleVlanConfigFlat(Bridging::VlanId(99));
  EXPECT_TRUE(sent->sharedDynVlan(Bridging::VlanId(99)));
  unconfigure(10);
  EXPECT_FALSE(sm->configSourceForVlanHas(Bridging::VlanId(10)));
  EXPECT_TRUE(sent->sharedDynVlan(Bridging::VlanId(10)));
}

// Damage at each read of the flat table, counted from the start of the first run: the walk's
// steps and the reads by key alternate, so an odd access ends the walk there and an even one
// makes that VLAN read as absent, hence shared; the last is the step that finds the end. Nothing
// escapes and each damage is reported once.
TEST_F(FlatVlanConfigTest, DamageAtEachReadOfTheFlatTableIsReportedAndTakesTheDefault) {
  std::vector<std::uint16_t> const cli = {10, 20, 30, 40};
  for (auto v : cli) configure(v, "cli");
  auto const& table = flatDir->vlanConfig();
  for (std::uint32_t n = 1; n <= 2 * cli.size() + 1; ++n) {
    SCOPED_TRACE(n);
    sent->sharedDynVlanDelAll();
    auto reportsBefore = table.corruptionReports();
    table.damageIs(Shoal::ShoalMapBase::DamageAt::nth, n, "torn row");
    MlagVxlan::SecondarySm::Ptr sm;
    ASSERT_NO_THROW(sm = secondary());
    VlanSet notShared;
    for (std::uint32_t i = 0; i < cli.size() && n != 2 * i + 1; ++i) {
      if (n != 2 * i + 2) notShared.insert(cli[i]);
    }
    EXPECT_EQ(shared(*sent, true), allBut(notShared));
    EXPECT_EQ(table.corruptionReports() - reportsBefore, 1u);
    // A notification's read by key, damaged: the VLAN reads as gone.
    table.damageIs(Shoal::ShoalMapBase::DamageAt::every);
    sm->vok_handleVlanConfigFlatDir_vlanConfig(Bridging::VlanId(40));
    EXPECT_TRUE(sent->sharedDynVlan(Bridging::VlanId(40)));
    EXPECT_EQ(table.lastCorruption().view(), "Shoal table damaged");
    table.damageIs(Shoal::ShoalMapBase::DamageAt::nothing);
  }
}

}  // namespace
