// BFD state between the roles: the secondary's rebuilds and kept keys, the primary's children
// per BFD peer and its reactors per VTEP status entry, and the order of the roles' handlers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "vxlan/BfdVlanTestSupport.h"

namespace {

using namespace BfdVlanTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Lanx::IpAddr ip(std::uint8_t last) { return Lanx::IpAddr(192, 0, 2, last); }
Row row(char const* label, std::uint8_t last, std::uint8_t state = 1) {
  return Row(Brix::String(label), ip(last), state, state);
}
Mlag::VtiVtep vtiVtep(char const* intf, char const* addr) {
  return Mlag::VtiVtep(Lanx::IntfId(intf), Lanx::IpGenAddr::parse(addr));
}
Bfd::Peer peer(std::uint32_t type, char const* addr, std::uint64_t session = 1, char const* intf = "Vxlan1") {
  return Bfd::Peer(Brix::String("default"), Lanx::IntfId(intf), session, type, Lanx::IpGenAddr::parse(addr),
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
    EXPECT_THAT(trace.starting(k.del), IsEmpty());
    EXPECT_EQ(trace.starting(k.add).size(), 2u);
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
  EXPECT_EQ(vxlanBfd(*local), (Snapshot{{text(a), "up"}, {text(keptStale), "up"}}));
  // Two keys that differ only in the VTI: two children, traces that look alike.
  recv->allVxlanBfdPeerStatusIs(b)->operStateIs(Bfd::OperState::down);
  recv->allVxlanBfdPeerStatusIs(v6)->operStateIs(Bfd::OperState::init);
  EXPECT_EQ(sm->vxlanBfdStatusSmCount(), 3u);
  EXPECT_EQ(trace.count(" Add/Udp peer Vtep 2001:db8::1, operState: init"), 1u);
  trace.clear();
  recv->allVxlanBfdPeerStatus(a)->operStateIs(Bfd::OperState::adminDown);
  EXPECT_EQ(local->allVxlanBfdPeerStatus(a)->operState(), Bfd::OperState::adminDown);
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
  recv->allVxlanBfdPeerStatusIs(b, replacement);
  EXPECT_EQ(sm->vxlanBfdStatusSm(b)->vxlanBfdStatus(), replacement);
  EXPECT_EQ(local->allVxlanBfdPeerStatus(b)->operState(), Bfd::OperState::up);
  // A key that goes: its child's cleanup deletes it first.
  trace.clear();
  (void)recv->allVxlanBfdPeerStatusDel(v6);
  EXPECT_EQ(sm->vxlanBfdStatusSm(v6), nullptr);
  EXPECT_FALSE(local->allVxlanBfdPeerStatusHas(v6));
  EXPECT_LT(trace.indexOf("VxlanBfdStatusSm::doCleanup()"),
            trace.indexOf(" Del peer Vtep 2001:db8::1, operState: init"));
  // A fresh role over a peer that dropped a key while none was listening: the stale child of the
  // old role is gone with it, the key without a child stays on purpose.
  sm = nullptr;
  EXPECT_EQ(vxlanBfd(*local), (Snapshot{{text(keptStale), "up"}}));
  (void)recv->allVxlanBfdPeerStatusDel(a);
  sm = secondary();
  EXPECT_EQ(vxlanBfd(*local), (Snapshot{{text(b), "up"}, {text(keptStale), "up"}}));
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
  EXPECT_EQ(sm->vtepStatusCount(), 3u);
  Snapshot plainRows = rows(*plain);
  plainRows.merge(rows(*other));
  EXPECT_EQ(rows(*sent, false), plainRows);
  EXPECT_EQ(rows(*sent, true), rows(*mlag));
  EXPECT_EQ(trace.count("Del bfd status") + trace.count("Del Mlag bfd status"), 2u) << "the two former keys";
  // One key at a time; a record equal to the default is a deletion.
  struct Step {
    std::function<void()> change;
    char const* line;
  };
  for (auto const& s : {Step{[&] { plain->bfdPeerStatusIs(row("a", 1, 2)); }, "Add bfd status"},
                        Step{[&] { (void)plain->bfdPeerStatusDel(ip(2)); }, "Del bfd status"},
                        Step{[&] { mlag->bfdPeerStatusIs(row("n", 5)); }, "Add Mlag bfd status"},
                        Step{[&] { plain->bfdPeerStatusIs(Row()); }, "Del bfd status"}}) {
    trace.clear();
    s.change();
    EXPECT_EQ(trace.count(s.line), 1u) << s.line;
    EXPECT_EQ(trace.levelOf(s.line), 6);
  }
  EXPECT_FALSE(sent->bfdPeerStatusHas(Lanx::IpAddr()));
  EXPECT_EQ(rows(*sent, true), rows(*mlag));
  // An entry that goes empties its kind's collection whole, what the other entry published too.
  trace.clear();
  (void)vtepDir->vtepStatusV2Del(Brix::String("Other-mlag"));
  EXPECT_THAT(rows(*sent, false), IsEmpty());
  EXPECT_EQ(rows(*sent, true), rows(*mlag));
  EXPECT_THAT(trace.texts(), ElementsAre("PrimarySm::VokVtepStatus(Other-mlag)::cleanup()", " Clear BFD Peer Status",
                                         "PrimarySm::VokVtepStatus(Other-mlag)::cleanup() return"));
  // An entry replaced under its name: its reactor follows the new entity and runs nothing at
  // the rebind; the new entity's changes are heard, the old one's no more.
  trace.clear();
  auto replacement = Brix::newNode<VxlanController::VtepStatusV2>(Brix::String("Vxlan1-mlag"));
  replacement->bfdPeerStatusIs(row("r", 6));
  vtepDir->vtepStatusV2Is(Brix::String("Vxlan1-mlag"), replacement);
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_EQ(rows(*sent, true), rows(*mlag));
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
  EXPECT_EQ(sm->bfdPeerStatusSmCount(), 1u);
  EXPECT_EQ(trace.count("PrimarySm::handleBfdPeerStatus(10.0.0.9) return Non Vxlan tunnel"), 1u);
  EXPECT_EQ(vxlanBfd(*sent), (Snapshot{{text(vtiVtep("Vxlan1", "10.0.0.1")), "up"},
                                       {text(vtiVtep("Vxlan7", "10.7.7.7")), "adminDown"}}));
  // Two peers that differ only in the session share one entry.
  bfdPeer->peerStatusIs(twin)->operStateIs(Bfd::OperState::down);
  bfdPeer->peerStatusIs(v6)->operStateIs(Bfd::OperState::init);
  EXPECT_EQ(sm->bfdPeerStatusSmCount(), 3u);
  EXPECT_EQ(sent->allVxlanBfdPeerStatus(vtiVtep("Vxlan1", "10.0.0.1"))->operState(), Bfd::OperState::down);
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
  EXPECT_EQ(sm->bfdPeerStatusSm(tunnel)->peerStatus(), again);
  EXPECT_EQ(sent->allVxlanBfdPeerStatus(vtiVtep("Vxlan1", "10.0.0.1"))->operState(), Bfd::OperState::adminDown);
  // The role's end withdraws each child's entry, and only those.
  sm = nullptr;
  EXPECT_EQ(vxlanBfd(*sent), (Snapshot{{text(vtiVtep("Vxlan7", "10.7.7.7")), "adminDown"}}));
}

// Each line present, in the order given.
void expectInOrder(Capture const& trace, std::vector<std::string> const& lines) {
  long last = -1;
  for (auto const& l : lines) {
    EXPECT_GT(trace.indexOf(l), last) << l;
    last = std::max(last, trace.indexOf(l));
  }
}

TEST_F(PrimaryBfdTest, FirstRunsAndCleanupsRunTheirHandlersInTheirOrder) {
  vtepDir->vtepStatusV2Is(Brix::String("Vxlan1"))->bfdPeerStatusIs(row("a", 1));
  bfdPeer->peerStatusIs(peer(3, "10.0.0.1"))->operStateIs(Bfd::OperState::up);
  recv->allVxlanBfdPeerStatusIs(vtiVtep("Vxlan1", "10.0.0.1"))->operStateIs(Bfd::OperState::up);
  bridgingConfig->vlanConfigIs(Bridging::VlanId(20))->configSourceIs(Brix::String("cli"));
  flatDir->vlanConfigIs(Bridging::VlanId(20),
                        Bridging::Flat::VlanConfigFlat(Bridging::VlanId(20), Swix::FString("cli")));
  (void)primary();
  expectInOrder(
      trace,
      {"PrimarySm::VokVtepStatus(Vxlan1)::handleInitialized() return", "PrimarySm::handleInitialized()",
       "PrimarySm::handleBfdPeerStatus()", "BfdPeerStatusSm(10.0.0.1)::handleInitialized() return",
       "PrimarySm::handleBfdPeerStatus() return", "PrimarySm::handleSharedDynVlan()",
       "PrimarySm::handleSharedDynVlan() return", "VlanToVniMapSm::handleInitialized()",
       "PrimarySm::handleInitialized() return", "PrimarySm::doCleanup()", "BfdPeerStatusSm(10.0.0.1)::doCleanup()",
       "PrimarySm::doCleanup() return", "PrimarySm::VokVtepStatus(Vxlan1)::cleanup()"});
  EXPECT_EQ(sent->allVxlanBfdPeerStatusCount(), 0u);
  for (bool flat : {true, false}) {
    SCOPED_TRACE(flat ? "flat" : "entities");
    MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(flat);
    sent->sharedDynVlanDelAll();
    trace.clear();
    (void)secondary();
    std::string const child = "SecondarySm::VokVlanConfig(20)::";
    expectInOrder(trace,
                  {"SecondarySm::handleInitialized()", " Reset shared dyn vlans",
                   flat ? "void MlagVxlan::SecondarySm::handleVlanConfigFlat(Bridging::VlanId) 20"
                        : child + "handleInitialized()",
                   " (20)::handleVlanSource Del shared dyn vlan 20", "SecondarySm::handleVtepBfdStatus()",
                   "SecondarySm::handleMlagBfdPeerStatus()", "SecondarySm::handleVxlanBfdPeerStatus()",
                   "VxlanBfdStatusSm::handleInitialized()", "SecondarySm::handleVxlanBfdPeerStatus() return",
                   "VlanToVniMapSm::handleInitialized()", "SecondarySm::handleInitialized() return",
                   "SecondarySm::doCleanup()", "VxlanBfdStatusSm::doCleanup()", "SecondarySm::doCleanup() return"});
    // Only the entities' road has a child per VLAN, and it goes after the role's own cleanup.
    EXPECT_EQ(trace.indexOf(child + "vlanConfigSourceSmCleanup()") > trace.indexOf("SecondarySm::doCleanup() return"),
              !flat);
  }
  MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(std::nullopt);
}

}  // namespace
