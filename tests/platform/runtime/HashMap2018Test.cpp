#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "runtime/HashMap2018.h"
#include "runtime/Node.h"

namespace {

using IntMap = Vok::HashMap2018<int, int>;

// Puts many keys on one probe run, so that erasing from the middle of a run is exercised.
struct CollidingHash {
  std::size_t operator()(int k) const noexcept { return static_cast<std::size_t>(k % 3); }
};

template <class M>
std::vector<int> keysOf(M const& m) {
  std::vector<int> keys;
  for (auto it = m.begin(); !it.done(); it.advance()) keys.push_back(it.currNodeNonStale().key);
  return keys;
}

struct Tracked : Brix::Node {
  explicit Tracked(int i) : id(i) {}
  int id;
};

TEST(HashMap2018, InsertLookupReplaceErase) {
  IntMap m;
  EXPECT_EQ(m.lookupNodeG(1), nullptr);
  EXPECT_FALSE(m.deleteMemberG(1));

  auto* n = m.newMemberG(1, 10);
  ASSERT_NE(n, nullptr);
  EXPECT_EQ(n->key, 1);
  EXPECT_EQ(m.lookupNodeG(1), n);
  EXPECT_EQ(m.newMemberG(1, 11), n) << "a present key is replaced in place";
  EXPECT_EQ(m.lookupNodeG(1)->value, 11);
  EXPECT_EQ(m.size(), 1u);

  auto [same, inserted] = m.findOrInsert(1, 99);
  EXPECT_FALSE(inserted);
  EXPECT_EQ(same->value, 11) << "findOrInsert leaves a present value alone";

  int out = -1;
  EXPECT_TRUE(m.deleteMemberG(1, &out));
  EXPECT_EQ(out, 11);
  out = -1;
  EXPECT_FALSE(m.deleteMemberG(1, &out));
  EXPECT_EQ(out, -1) << "a failed delete leaves the out value alone";
  EXPECT_TRUE(m.empty());

  // A full first segment emptied by erases, too small for a reclaim on erase, takes new entries.
  IntMap emptied;
  for (int k = 0; k < 8; ++k) emptied.newMemberG(k, k);
  for (int k = 0; k < 8; ++k) emptied.deleteMemberG(k);
  emptied.newMemberG(42, 1);
  EXPECT_EQ(keysOf(emptied), std::vector<int>{42});
  EXPECT_EQ(emptied.lookupNodeG(42)->value, 1);

  // Growth, and erases from the middle of long probe runs.
  Vok::HashMap2018<int, int, CollidingHash> c;
  for (int k = 0; k < 300; ++k) c.newMemberG(k, -k);
  for (int k = 0; k < 300; k += 2) ASSERT_TRUE(c.deleteMemberG(k));
  for (int k = 0; k < 300; ++k) {
    auto* e = c.lookupNodeG(k);
    if (k % 2 == 0) {
      EXPECT_EQ(e, nullptr) << k;
    } else {
      ASSERT_NE(e, nullptr) << k;
      EXPECT_EQ(e->value, -k);
    }
  }
  EXPECT_EQ(c.size(), 150u);
}

TEST(HashMap2018, WalksInInsertionOrder) {
  IntMap m;
  for (int k : {7, 3, 9, 1, 5}) m.newMemberG(k, 0);
  EXPECT_EQ(keysOf(m), (std::vector<int>{7, 3, 9, 1, 5}));
  m.newMemberG(3, 1);  // replacing keeps the place
  m.deleteMemberG(9);
  m.newMemberG(9, 0);  // a new entry goes last
  EXPECT_EQ(keysOf(m), (std::vector<int>{7, 3, 1, 5, 9}));

  std::vector<int> ranged;
  for (auto& n : m.begin()) ranged.push_back(n.key);
  EXPECT_EQ(ranged, keysOf(m));
  EXPECT_TRUE(m.begin() != m.end());
  IntMap empty;
  EXPECT_TRUE(empty.begin() == empty.end());
}

TEST(HashMap2018, WalkSurvivesMutationsMadeDuringIt) {
  IntMap m;
  for (int k = 0; k < 10; ++k) m.newMemberG(k, k);

  // Erasing the entry the walk stands on: its key stays readable, the walk goes on.
  std::vector<int> visited;
  for (auto it = m.begin(); !it.done(); it.advance()) {
    int key = it.currNodeMaybeStale().key;
    visited.push_back(key);
    if (key % 2 == 0) {
      ASSERT_TRUE(m.deleteMemberG(key));
      EXPECT_TRUE(it.currNodeStale());
      EXPECT_EQ(it.currNodeMaybeStale().key, key);
      EXPECT_EQ(m.lookupNodeG(key), nullptr);
    }
  }
  EXPECT_EQ(visited, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(keysOf(m), (std::vector<int>{1, 3, 5, 7, 9}));

  // At 5: erase one behind and one ahead, insert a new key and re-insert the one behind.
  visited.clear();
  for (auto it = m.begin(); !it.done(); it.advance()) {
    visited.push_back(it.currNodeNonStale().key);
    if (it.currNodeNonStale().key == 5) {
      m.deleteMemberG(1);
      m.deleteMemberG(7);
      m.newMemberG(20, 20);
      m.newMemberG(1, 1);
    }
  }
  EXPECT_EQ(visited, (std::vector<int>{1, 3, 5, 9, 20, 1})) << "entries present when reached, once each";
  EXPECT_EQ(keysOf(m), (std::vector<int>{3, 5, 9, 20, 1}));

  // _memberDelAll in a walk ends it; the map takes new entries in the same walk.
  visited.clear();
  for (auto it = m.begin(); !it.done(); it.advance()) {
    visited.push_back(it.currNodeNonStale().key);
    if (visited.size() == 2) {
      m._memberDelAll();
      EXPECT_TRUE(m.empty());
      EXPECT_EQ(m.lookupNodeG(3), nullptr);
      EXPECT_TRUE(it.currNodeStale());
    }
  }
  EXPECT_EQ(visited, (std::vector<int>{3, 5}));
  m.newMemberG(4, 4);
  EXPECT_EQ(keysOf(m), std::vector<int>{4});
}

TEST(HashMap2018, NestedWalksAndReclaimAfterThem) {
  IntMap m;
  for (int k = 0; k < 1000; ++k) m.newMemberG(k, k);
  std::size_t full = m.memoryBytes();

  std::vector<int> outer;
  {
    auto it = m.begin();
    outer.push_back(it.currNodeNonStale().key);
    // An inner walk erases all but the last ten; the outer walk must not see them.
    for (auto in = m.begin(); !in.done(); in.advance()) {
      int key = in.currNodeMaybeStale().key;
      if (key < 990 && key != 0) m.deleteMemberG(key);
    }
    EXPECT_EQ(m.size(), 11u);
    EXPECT_EQ(m.memoryBytes(), full) << "nothing is reclaimed while a walk is live";
    for (it.advance(); !it.done(); it.advance()) outer.push_back(it.currNodeNonStale().key);
  }
  std::vector<int> expected{0};
  for (int k = 990; k < 1000; ++k) expected.push_back(k);
  EXPECT_EQ(outer, expected);

  // The last walk has ended: the tombstones are gone, order and lookups survive the move.
  EXPECT_LT(m.memoryBytes(), full);
  EXPECT_EQ(keysOf(m), expected);
  for (int k : expected) EXPECT_EQ(m.lookupNodeG(k)->value, k);
  m.newMemberG(5, 5);
  EXPECT_EQ(m.lookupNodeG(5)->value, 5);
}

TEST(HashMap2018, ErasingReleasesPointerValues) {
  auto const base = Brix::Node::liveCount();
  {
    Vok::HashMap2018<int, Brix::Ptr<Tracked>> m;
    for (int k = 0; k < 10; ++k) m.newMemberG(k, Brix::newNode<Tracked>(k));
    EXPECT_EQ(Brix::Node::liveCount(), base + 10);

    Brix::Ptr<Tracked> out;
    ASSERT_TRUE(m.deleteMemberG(0, &out));
    EXPECT_EQ(out->id, 0);
    EXPECT_EQ(out->useCount(), 1u) << "the map keeps no use of an erased value";
    out = nullptr;
    EXPECT_EQ(Brix::Node::liveCount(), base + 9);

    m.newMemberG(1, Brix::newNode<Tracked>(100));  // the replaced value goes
    EXPECT_EQ(Brix::Node::liveCount(), base + 9);

    // A tombstone kept for a live walk holds no use either.
    for (auto it = m.begin(); !it.done(); it.advance()) {
      if (it.currNodeNonStale().key == 2) {
        m.deleteMemberG(2);
        m.deleteMemberG(7);
        EXPECT_EQ(Brix::Node::liveCount(), base + 7);
      }
      if (it.currNodeMaybeStale().key == 4) {
        m._memberDelAll();
        EXPECT_EQ(Brix::Node::liveCount(), base);
      }
    }
    m.newMemberG(1, Brix::newNode<Tracked>(1));
    m.newMemberG(2, Brix::newNode<Tracked>(2));
  }
  EXPECT_EQ(Brix::Node::liveCount(), base) << "the destructor releases the rest";
}

// ---- the model check ---------------------------------------------------------------------

constexpr int kKeys = 24;

// The model: value and insertion number by key. A walk visits the live entry with the
// smallest insertion number above the one it visited last.
struct Model {
  std::map<int, std::pair<std::uint64_t, int>> entries;
  std::uint64_t seq = 0;

  void insert(int k, int v) {
    auto it = entries.find(k);
    if (it != entries.end()) {
      it->second.second = v;
    } else {
      entries[k] = {seq++, v};
    }
  }
  std::vector<int> order() const {
    std::map<std::uint64_t, int> bySeq;
    for (auto const& [k, e] : entries) bySeq[e.first] = k;
    std::vector<int> keys;
    for (auto const& [s, k] : bySeq) keys.push_back(k);
    return keys;
  }
  std::optional<std::pair<std::uint64_t, int>> nextAfter(std::optional<std::uint64_t> last) const {
    std::optional<std::pair<std::uint64_t, int>> best;
    for (auto const& [k, e] : entries) {
      if (last && e.first <= *last) continue;
      if (!best || e.first < best->first) best = std::pair{e.first, k};
    }
    return best;
  }
};

// (kind, key, value, per-step actions of a walk as (action, key))
using Op = std::tuple<int, int, int, std::vector<std::pair<int, int>>>;

template <class H>
void checkAgainstModel(std::vector<Op> const& ops) {
  Vok::HashMap2018<int, int, H> m;
  Model model;
  for (auto const& [kind, key, value, steps] : ops) {
    if (kind < 4) {
      m.newMemberG(key, value);
      model.insert(key, value);
    } else if (kind < 7) {
      int out = -1;
      auto e = model.entries.find(key);
      bool had = e != model.entries.end();
      RC_ASSERT(m.deleteMemberG(key, &out) == had);
      if (had) {
        RC_ASSERT(out == e->second.second);
        model.entries.erase(e);
      }
    } else if (kind == 7) {
      m._memberDelAll();
      model.entries.clear();
    } else {
      std::optional<std::uint64_t> last;
      std::size_t step = 0;
      for (auto it = m.begin(); !it.done(); it.advance()) {
        auto expected = model.nextAfter(last);
        RC_ASSERT(expected.has_value());
        RC_ASSERT(!it.currNodeStale());
        RC_ASSERT(it.currNodeNonStale().key == expected->second);
        last = expected->first;
        if (step >= steps.size()) continue;
        auto [action, other] = steps[step++];
        int current = it.currNodeMaybeStale().key;
        switch (action) {
          case 0:  // the pattern of every all-keys handler
            RC_ASSERT(m.deleteMemberG(current));
            model.entries.erase(current);
            RC_ASSERT(it.currNodeMaybeStale().key == current);
            break;
          case 1:
            RC_ASSERT(m.deleteMemberG(other) == (model.entries.erase(other) > 0));
            break;
          case 2:
            m.newMemberG(other, other * 7);
            model.insert(other, other * 7);
            break;
          case 3:
            m._memberDelAll();
            model.entries.clear();
            break;
          default:
            break;
        }
      }
      RC_ASSERT(!model.nextAfter(last).has_value());
    }
    RC_ASSERT(m.size() == model.entries.size());
    for (int k = 0; k < kKeys; ++k) {
      auto const* n = m.lookupNodeG(k);
      auto e = model.entries.find(k);
      RC_ASSERT((n != nullptr) == (e != model.entries.end()));
      if (n) RC_ASSERT(n->value == e->second.second);
    }
    RC_ASSERT(keysOf(m) == model.order());
  }
}

rc::Gen<std::vector<Op>> opsGen() {
  auto key = rc::gen::inRange(0, kKeys);
  auto steps = rc::gen::container<std::vector<std::pair<int, int>>>(rc::gen::pair(rc::gen::inRange(0, 6), key));
  return rc::gen::container<std::vector<Op>>(
      rc::gen::tuple(rc::gen::inRange(0, 10), key, rc::gen::arbitrary<int>(), steps));
}

RC_GTEST_PROP(HashMap2018Model, MatchesStdMapThroughWalksWithMutation, ()) {
  checkAgainstModel<Vok::Hash<int>>(*opsGen());
}

RC_GTEST_PROP(HashMap2018Model, MatchesStdMapWithCollidingKeys, ()) { checkAgainstModel<CollidingHash>(*opsGen()); }

}  // namespace

// Past the doubling segments the map grows in fixed-size segments: entries there must be found,
// walked in order and survive a reclaim like any other.
TEST(HashMap2018, LargeMapAcrossFixedSegments) {
  Vok::HashMap2018<std::uint32_t, std::uint32_t> m;
  constexpr std::uint32_t n = 30000;
  for (std::uint32_t k = 0; k < n; ++k) m.newMemberG(k * 7919u, k);
  for (std::uint32_t k = 0; k < n; k += 2) ASSERT_TRUE(m.deleteMemberG(k * 7919u));
  std::uint32_t expect = 1;
  for (auto& node : m) {
    ASSERT_EQ(node.value, expect);
    expect += 2;
  }
  EXPECT_EQ(expect, n + 1);
  for (std::uint32_t k = n; k < n + 10000; ++k) m.newMemberG(k * 7919u, k);
  for (std::uint32_t k = 1; k < n + 10000; k += (k < n ? 2 : 1)) {
    auto const* node = m.lookupNodeG(k * 7919u);
    ASSERT_NE(node, nullptr) << k;
    ASSERT_EQ(node->value, k);
  }
  EXPECT_EQ(m.size(), n / 2 + 10000);
}
