#include <gtest/gtest.h>

#include "runtime/Node.h"

namespace {

struct Thing : Brix::Node {
  explicit Thing(int v = 0) : value(v) {}
  int value;
};

// Records the last use going instead of deleting at once.
struct Watched : Brix::Node {
  explicit Watched(int& gone) : gone_(gone) {}
  void lastUserGone() override {
    ++gone_;
    delete this;
  }
  int& gone_;
};

TEST(Node, PtrCountsUsesAndComparesByIdentity) {
  auto const base = Brix::Node::liveCount();
  {
    auto* raw = new Thing(1);
    Brix::Ptr<Thing> adopted(raw, Brix::adoptUse);
    EXPECT_EQ(raw->useCount(), 1u) << "adopting takes over the first use";
    auto p = Brix::newNode<Thing>(2);
    Brix::Ptr<Thing> copy = p;
    Brix::Ptr<Thing> moved = std::move(copy);
    EXPECT_FALSE(copy);  // NOLINT(bugprone-use-after-move): a moved-from Ptr is null, which is the point
    copy = moved;
    Brix::Ptr<Thing>& alias = copy;
    copy = alias;  // self-assignment keeps the count
    EXPECT_EQ(p->useCount(), 3u);
    copy = adopted;
    EXPECT_EQ(p->useCount(), 2u);
    EXPECT_EQ(raw->useCount(), 2u);
    // The read-only and base forms share the count and the object.
    Brix::Ptr<Thing const> ro = p;
    Brix::Ptr<Brix::Node const> asNode = ro;
    Brix::Ptr<Thing const> roMoved = std::move(p);
    EXPECT_EQ(roMoved->useCount(), 4u);
    auto twin = Brix::newNode<Thing>(2);
    EXPECT_TRUE(ro == moved && asNode == moved);
    EXPECT_FALSE(twin == moved || twin == nullptr);
    Brix::Ptr<Thing> back(twin.release(), Brix::adoptUse);
    EXPECT_EQ(back->useCount(), 1u);
    EXPECT_EQ(Brix::Node::liveCount(), base + 3);
  }
  EXPECT_EQ(Brix::Node::liveCount(), base);
}

TEST(Node, FlagsAreIndependentOfTheUseCount) {
  for (std::uint8_t tsp : {0, 1}) {
    Brix::ThreadControl::tsp_ = tsp;
    auto n = Brix::newNode<Thing>();
    Brix::hasNotificationActiveSet(n.get(), true);
    EXPECT_FALSE(n->markAndSweepFlag());
    n->markAndSweepFlagSet(true);
    {
      Brix::Ptr<Thing> more[5] = {n, n, n, n, n};
      EXPECT_EQ(n->useCount(), 6u);
      EXPECT_TRUE(n->hasNotificationActive() && n->nodeFlag(Brix::Node::Flag::markAndSweep));
    }
    n->nodeFlagSet(Brix::Node::Flag::hasNotificationActive, false);
    EXPECT_FALSE(n->hasNotificationActive());
    EXPECT_TRUE(n->markAndSweepFlag());
    EXPECT_EQ(n->useCount(), 1u) << "tsp " << int{tsp};
  }
  Brix::ThreadControl::tsp_ = 0;
}

TEST(Node, LastUserGoneRunsWhenTheCountReachesZero) {
  int gone = 0;
  {
    auto w = Brix::newNode<Watched>(gone);
    Brix::Ptr<Watched const> other = w;
    w = nullptr;
    w = Brix::Ptr<Watched>(const_cast<Watched*>(other.get()));
    other = nullptr;
    w->incUse();
    w->decUseImpl();
    EXPECT_EQ(gone, 0);
  }
  EXPECT_EQ(gone, 1);
}

}  // namespace
