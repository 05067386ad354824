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

using Flag = Brix::Node::Flag;

TEST(Node, PtrCountsUses) {
  auto const base = Brix::Node::liveCount();
  {
    auto* raw = new Thing(1);
    EXPECT_EQ(raw->useCount(), 1u) << "a new node holds its first use";
    EXPECT_EQ(Brix::Node::liveCount(), base + 1);
    Brix::Ptr<Thing> adopted(raw, Brix::adoptUse);
    EXPECT_EQ(raw->useCount(), 1u);

    auto p = Brix::newNode<Thing>(2);
    EXPECT_EQ(p->useCount(), 1u) << "newNode adopts the first use";
    Brix::Ptr<Thing> copy = p;
    EXPECT_EQ(p->useCount(), 2u);
    Brix::Ptr<Thing> moved = std::move(copy);
    EXPECT_EQ(p->useCount(), 2u);
    EXPECT_FALSE(copy);
    copy = moved;
    EXPECT_EQ(p->useCount(), 3u);
    Brix::Ptr<Thing>& alias = copy;
    copy = alias;  // self-assignment keeps the count
    EXPECT_EQ(p->useCount(), 3u);
    copy = adopted;
    EXPECT_EQ(p->useCount(), 2u);
    EXPECT_EQ(raw->useCount(), 2u);

    // The read-only and base forms share the count and the object.
    Brix::Ptr<Thing const> ro = p;
    Brix::Ptr<Brix::Node const> asNode = ro;
    EXPECT_EQ(p->useCount(), 4u);
    EXPECT_EQ(ro->value, 2);
    Brix::Ptr<Thing const> roMoved = std::move(p);
    EXPECT_FALSE(p);
    EXPECT_EQ(roMoved->useCount(), 4u);

    // Equality is identity: equal contents are not the same node.
    auto twin = Brix::newNode<Thing>(2);
    EXPECT_TRUE(ro == moved);
    EXPECT_TRUE(asNode == moved);
    EXPECT_FALSE(twin == moved);
    EXPECT_TRUE(Brix::Ptr<Thing>() == nullptr);
    EXPECT_FALSE(twin == nullptr);

    Thing* released = twin.release();
    EXPECT_EQ(released->useCount(), 1u);
    Brix::Ptr<Thing> back(released, Brix::adoptUse);
    EXPECT_EQ(Brix::Node::liveCount(), base + 3);
  }
  EXPECT_EQ(Brix::Node::liveCount(), base);
}

TEST(Node, FlagsAreIndependentOfTheUseCount) {
  for (std::uint8_t tsp : {0, 1}) {
    Brix::ThreadControl::tsp_ = tsp;
    auto n = Brix::newNode<Thing>();
    EXPECT_FALSE(n->hasNotificationActive());
    EXPECT_FALSE(n->markAndSweepFlag());

    Brix::hasNotificationActiveSet(n.get(), true);
    EXPECT_TRUE(n->hasNotificationActive());
    EXPECT_FALSE(n->markAndSweepFlag());
    n->markAndSweepFlagSet(true);
    EXPECT_TRUE(n->nodeFlag(Flag::markAndSweep));
    EXPECT_EQ(n->useCount(), 1u);

    {
      Brix::Ptr<Thing> more[5] = {n, n, n, n, n};
      EXPECT_EQ(n->useCount(), 6u);
      EXPECT_TRUE(n->hasNotificationActive());
      EXPECT_TRUE(n->markAndSweepFlag());
    }
    n->nodeFlagSet(Flag::hasNotificationActive, false);
    EXPECT_FALSE(n->hasNotificationActive());
    EXPECT_TRUE(n->markAndSweepFlag());
    n->markAndSweepFlagSet(false);
    EXPECT_FALSE(n->markAndSweepFlag());
    EXPECT_EQ(n->useCount(), 1u) << "tsp " << int{tsp};
  }
  Brix::ThreadControl::tsp_ = 0;
}

TEST(Node, LastUserGoneRunsWhenTheCountReachesZero) {
  auto const base = Brix::Node::liveCount();
  int gone = 0;
  {
    auto w = Brix::newNode<Watched>(gone);
    Brix::Ptr<Watched const> other = w;
    w = nullptr;
    EXPECT_EQ(gone, 0);
    w = Brix::Ptr<Watched>(const_cast<Watched*>(other.get()));
    other = nullptr;
    EXPECT_EQ(gone, 0);
    w->incUse();
    w->decUseImpl();
    EXPECT_EQ(gone, 0);
  }
  EXPECT_EQ(gone, 1);
  EXPECT_EQ(Brix::Node::liveCount(), base);
}

}  // namespace
