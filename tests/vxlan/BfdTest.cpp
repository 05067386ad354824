// BFD state between the roles: the secondary's rebuilds and kept keys, the primary's children
// per BFD peer and its reactors per VTEP status entry, and the state crossing end to end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

using SecondaryBfdTest = Fixture;

// The two row collections behave alike but for their words; each case runs for both.
struct RowKind {
  bool mlag;
  std::string add, del;
};
std::vector<RowKind> const rowKinds = {
    {false, " SecondarySm::handleVtepBfdStatus Add BFD peer status ",
     " SecondarySm::handleVtepBfdStatus Del BFD peer status "},
    {true, " SecondarySm::handleMlagBfdPeerStatus Add MLAG BFD peer status ",
     " SecondarySm::handleMlagBfdPeerStatus Del MLAG BFD peer status "},
};
void rowIs(Status& s, bool mlag, Row const& r) { mlag ? s.mlagBfdPeerStatusIs(r) : s.bfdPeerStatusIs(r); }
void rowDel(Status& s, bool mlag, Lanx::IpAddr k) { (void)(mlag ? s.mlagBfdPeerStatusDel(k) : s.bfdPeerStatusDel(k)); }

TEST_F(SecondaryBfdTest, FirstRunRebuildsBothRowCollectionsThenRowsFollowThePeerOneByOne) {
  for (auto const& k : rowKinds) {
    SCOPED_TRACE(k.mlag ? "mlag" : "vtep");
    rowIs(*local, k.mlag, row("stale", 9));  // a former life's row: goes without a trace of its own
    rowIs(*local, k.mlag, row("kept", 1, 2));
    rowIs(*recv, k.mlag, row("kept", 1));
    rowIs(*recv, k.mlag, row("new", 2));
    trace.clear();
    auto sm = secondary();
    EXPECT_EQ(rows(*local, k.mlag), rows(*recv, k.mlag));
    EXPECT_THAT(trace.starting(k.del), IsEmpty());
    EXPECT_EQ(trace.starting(k.add).size(), 2u);
    EXPECT_EQ(trace.levelOf(k.add + "192.0.2.2"), 6);

    // Changed, deleted, deleted again, and never there. A row carries its key, so only a missing
    // row reads as the default.
    struct Step {
      char const* what;
      std::function<void()> change;
      std::string line;
    };
    std::vector<Step> const steps = {
        {"changed", [&] { rowIs(*recv, k.mlag, row("kept", 1, 0)); }, k.add + "192.0.2.1"},
        {"deleted", [&] { rowDel(*recv, k.mlag, ip(1)); }, k.del + "192.0.2.1"},
        {"again",
         [&] { rowDel(*recv, k.mlag, ip(1)), sm->handleVtepBfdStatus(ip(1)), sm->handleMlagBfdPeerStatus(ip(1)); },
         k.del + "192.0.2.1"},
        {"absent", [&] { sm->handleVtepBfdStatus(ip(7)), sm->handleMlagBfdPeerStatus(ip(7)); }, k.del + "192.0.2.7"},
    };
    for (auto const& s : steps) {
      SCOPED_TRACE(s.what);
      trace.clear();
      s.change();
      EXPECT_EQ(trace.count(s.line), 1u);
      EXPECT_EQ(rows(*local, k.mlag), rows(*recv, k.mlag));
    }
    sm = nullptr;
    EXPECT_THAT(rows(*local, k.mlag), IsEmpty());
    recv->bfdPeerStatusDelAll();
    recv->mlagBfdPeerStatusDelAll();
  }
  EXPECT_EQ(trace.count("SecondarySm::handleMlagBfdPeerStatus() reuturn"), 0u) << "the cleanup runs no handler";
}

TEST_F(SecondaryBfdTest, EachPeerEntityGetsAChildThatCopiesItsStateAndWithdrawsItsKey) {
  auto const a = vtiVtep("Vxlan1", "10.0.0.1"), b = vtiVtep("Vxlan2", "10.0.0.1"),
             v6 = vtiVtep("Vxlan1", "2001:db8::1");
  auto const keptStale = vtiVtep("Vxlan9", "10.9.9.9");
  local->allVxlanBfdPeerStatusIs(keptStale)->operStateIs(Bfd::OperState::up);  // no child stands for it
  recv->allVxlanBfdPeerStatusIs(a)->operStateIs(Bfd::OperState::up);
  auto sm = secondary();
  EXPECT_EQ(sm->vxlanBfdStatusSmCount(), 1u);
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

}  // namespace
