#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "runtime/HashMap2018.h"

namespace {

using IntMap = Vok::HashMap2018<int, int>;

// Puts many keys on one probe run, so that erasing from the middle of a run is exercised.
struct CollidingHash {
  std::size_t operator()(int k) const noexcept { return static_cast<std::size_t>(k % 3); }
};

template <class M>
std::vector<int> keysOf(M const& m) {
  std::vector<int> keys;
  for (auto& n : m.begin()) keys.push_back(n.key);
  return keys;
}

// A value that notes, when it goes, what the map it was in shows of its key.
struct Seen {
  int key;
  bool present;
  std::size_t size;
};
std::vector<Seen> seen;
std::function<Seen(int)> observe;

// Counts the keyed values alive, so that the map is seen to hold no value it has let go.
struct Watched {
  int v = 0;
  int key = -1;  // -1: moved from, or never keyed
  static inline int live = 0;
  Watched() = default;
  Watched(int value, int k) : v(value), key(k) { live += k >= 0; }
  Watched(Watched&& o) noexcept : v(o.v), key(std::exchange(o.key, -1)) {}
  Watched& operator=(Watched&& o) noexcept {
    Watched t(std::move(o));
    std::swap(v, t.v);
    std::swap(key, t.key);
    return *this;
  }
  ~Watched() {
    live -= key >= 0;
    if (key >= 0 && observe) seen.push_back(observe(key));
  }
};

// Watches `m` for the life of the guard; declared after the map, so it ends first.
struct Watch {
  template <class M>
  explicit Watch(M& m) {
    observe = [&m](int k) { return Seen{k, m.contains(k), m.size()}; };
    seen.clear();
  }
  ~Watch() { observe = nullptr; }
};

// Every value released since the last call saw its entry gone and the map at `size`.
bool allGone(std::size_t size) {
  bool ok = std::all_of(seen.begin(), seen.end(), [&](Seen const& e) { return !e.present && e.size == size; });
  seen.clear();
  return ok;
}

// A large map, past the doubling segments into fixed-size ones: an inner walk that erases inside
// an outer one, a reclaim once the last walk ends, growth again; order and lookups survive each,
// and the memory follows the entries, also the index while a walk is live.
TEST(HashMap2018, LargeMapThroughNestedWalksReclaimAndGrowth) {
  Vok::HashMap2018<std::uint32_t, std::uint32_t> m;
  constexpr std::uint32_t n = 30000;
  auto key = [](std::uint32_t v) { return v * 7919u; };
  std::vector<std::uint32_t> kept;
  for (std::uint32_t v = 0; v < n; ++v) {
    m.newMemberG(key(v), v);
    if (v % 1000 == 0) kept.push_back(v);
  }
  std::size_t const full = m.memoryBytes();
  auto const* last = m.lookupNodeG(key(n - 1000));
  auto rest = [](auto it) {
    std::vector<std::uint32_t> values;
    for (; !it.done(); it.advance()) values.push_back(it.currNodeNonStale().value);
    return values;
  };
  {
    auto it = m.begin();
    for (auto in = m.begin(); !in.done(); in.advance()) {
      if (in.currNodeMaybeStale().value % 1000) m.deleteMemberG(in.currNodeMaybeStale().key);
    }
    EXPECT_LT(m.memoryBytes(), full) << "the index goes while the walk is live";
    EXPECT_EQ(m.lookupNodeG(key(n - 1000)), last) << "nothing moves while a walk is live";
    m.newMemberG(key(n), n);
    kept.push_back(n);
    EXPECT_EQ(rest(it), kept);
  }
  EXPECT_LT(m.memoryBytes() * 32, full) << m.memoryBytes();
  EXPECT_EQ(rest(m.begin()), kept);
  for (std::uint32_t v = n + 1; v < n + 10000; ++v) m.newMemberG(key(v), v);
  for (std::uint32_t v = 0; v < n + 10000; v += v < n ? 1000 : 1) ASSERT_EQ(m.lookupNodeG(key(v))->value, v);
  EXPECT_EQ(m.size(), kept.size() + 9999);
  // Erased down outside a walk, the map gives slots back before it holds four a live entry.
  std::size_t const grown = m.memoryBytes();
  for (std::uint32_t v = n + 1; v < n + 8000; ++v) ASSERT_TRUE(m.deleteMemberG(key(v)));
  EXPECT_LT(m.memoryBytes(), grown);
  for (std::uint32_t v = n + 8000; v < n + 10000; ++v) ASSERT_EQ(m.lookupNodeG(key(v))->value, v);
  {
    auto it = m.begin();
    m._memberDelAll();
    EXPECT_GT(m.memoryBytes(), 0u) << "tombstones stay while the walk is live";
  }
  EXPECT_EQ(m.memoryBytes(), 0u);
}

// eraseEach whose callback puts each key back once, so that the index fills with the buckets of
// erased entries and grows meanwhile: lookups see every key's present entry throughout.
TEST(HashMap2018, EraseEachThroughGrowthWithKeysPutBack) {
  constexpr int n = 1200;  // twice as many buckets as the index holds at first
  IntMap m;
  for (int k = 0; k < n; ++k) m.newMemberG(k, k);
  std::vector<int> state(n, 0);  // 0 first entry live, 1 put back and live, 2 gone
  int calls = 0;
  m.eraseEach([&](int const& k) {
    state[std::size_t(k)] += 1;
    if (state[std::size_t(k)] == 1) m.newMemberG(k, k + 5000);
    ++calls;
    for (int q = 0; q < n; ++q) {
      auto const* node = m.lookupNodeG(q);
      int const st = state[std::size_t(q)];
      ASSERT_EQ(node != nullptr, st != 2) << q;
      if (node) {
        ASSERT_EQ(node->value, st == 0 ? q : q + 5000) << q;
      }
    }
  });
  EXPECT_EQ(calls, 2 * n);
  EXPECT_EQ(m.size(), 0u);
  EXPECT_EQ(m.memoryBytes(), 0u);
}

// ---- the model check ---------------------------------------------------------------------

constexpr int kKeys = 24;

// The model: value and insertion number by key. A walk visits the live entry with the
// smallest insertion number above the one it visited last.
struct Model {
  std::map<int, std::pair<std::uint64_t, int>> entries;
  std::uint64_t seq = 0;

  void insert(int k, int v) {
    if (auto [it, fresh] = entries.try_emplace(k, seq++, v); !fresh) it->second.second = v;
  }
  std::optional<std::pair<std::uint64_t, int>> nextAfter(std::optional<std::uint64_t> last) const {
    std::optional<std::pair<std::uint64_t, int>> best;
    for (auto const& [k, e] : entries) {
      if ((!last || e.first > *last) && (!best || e.first < best->first)) best = std::pair{e.first, k};
    }
    return best;
  }
  std::vector<int> order() const {
    std::vector<int> keys;
    for (auto n = nextAfter({}); n; n = nextAfter(n->first)) keys.push_back(n->second);
    return keys;
  }
};

// (kind, key, value, per-step actions of a walk or an eraseEach as (action, key))
using Op = std::tuple<int, int, int, std::vector<std::pair<int, int>>>;

// Besides contents, order and walks, checks what the header promises: a node pointer keeps its
// entry until the next erase, or the end of the walk for an erase made during a walk; a released
// value finds its entry gone; an emptied map outside a walk holds no memory.
template <class H>
void checkAgainstModel(std::vector<Op> const& ops) {
  using Map = Vok::HashMap2018<int, Watched, H>;
  Map m;
  Watch watch(m);
  Model model;
  std::map<int, typename Map::Node const*> held;
  bool erasedInWalk = false;
  auto checkHeld = [&] {
    for (auto const& [k, n] : held) RC_ASSERT(n->key == k && n->value.v == model.entries.at(k).second);
  };
  // With or without taking the value back.
  auto erase = [&](int k, bool inWalk, bool takeOut = true) {
    Watched out(-7, -1);  // a failed erase leaves it alone
    bool had = model.entries.count(k) > 0;
    erasedInWalk |= had && inWalk;
    RC_ASSERT(m.deleteMemberG(k, takeOut ? &out : nullptr) == had);
    RC_ASSERT(out.v == (had && takeOut ? model.entries[k].second : -7));
    model.entries.erase(k);
    held.erase(k);
    if (had && !inWalk) held.clear();
    out = Watched();
    RC_ASSERT(allGone(model.entries.size()));
  };
  for (auto const& [kind, key, value, steps] : ops) {
    if (kind < 4) {
      if (kind < 3) {
        held[key] = m.newMemberG(key, Watched(value, key));
        model.insert(key, value);
      } else {
        held[key] = m.findOrInsert(key, Watched(value, key)).first;
        model.entries.try_emplace(key, model.seq++, value);
      }
      seen.clear();  // a replaced or refused value goes while its key stays
    } else if (kind < 7) {
      erase(key, false, kind < 6);
    } else if (kind == 7) {
      m._memberDelAll();
      model.entries.clear();
      held.clear();
      RC_ASSERT(allGone(0));
    } else if (kind == 10) {
      // eraseEach, with the walk's actions made from its callback: every entry goes, those the
      // callback inserts too, and lookups meanwhile see only what is still there.
      std::optional<std::uint64_t> last;
      std::size_t step = 0;
      bool backAgain = false;       // the call before put its own key back, as the value saw
      auto const& actions = steps;  // a lambda may not name a structured binding in Clang 14
      m.eraseEach([&](int const& k) {
        // The value of the call before went after it.
        if (!std::exchange(backAgain, false)) RC_ASSERT(allGone(model.entries.size()));
        seen.clear();
        auto expected = model.nextAfter(last);
        RC_ASSERT(expected.has_value() && expected->second == k);
        last = expected->first;
        model.entries.erase(k);
        held.clear();
        erasedInWalk = true;
        if (step < actions.size()) {
          auto [action, other] = actions[step++];
          if (action == 1) erase(other, true);
          if (action == 2) {
            m.newMemberG(other, Watched(other * 7, other));
            model.insert(other, other * 7);
            seen.clear();
            backAgain = other == k;
          }
          if (action == 3) {
            m._memberDelAll();
            model.entries.clear();
            RC_ASSERT(allGone(0));
          }
          if (action == 4 || action == 5) {  // the key just erased comes back, ahead of its old bucket or not
            m.newMemberG(k, Watched(k * 5, k));
            model.insert(k, k * 5);
            seen.clear();
            backAgain = action == 4;
            if (action == 5) erase(k, true);
          }
          if (action == 6) m.reserve(m.size() + static_cast<std::size_t>(other) * 3);  // rebuilt mid-erase
        }
        for (int q = 0; q < kKeys; ++q) RC_ASSERT((m.lookupNodeG(q) != nullptr) == (model.entries.count(q) > 0));
      });
      RC_ASSERT(allGone(0) && model.entries.empty());
      erasedInWalk = false;
    } else {
      std::optional<std::uint64_t> last;
      std::size_t step = 0;
      for (auto it = m.begin(); !it.done(); it.advance()) {
        auto expected = model.nextAfter(last);
        RC_ASSERT(expected.has_value());
        RC_ASSERT(!it.currNodeStale());
        int current = it.currNodeNonStale().key;
        RC_ASSERT(current == expected->second);
        held[current] = &it.currNodeNonStale();
        last = expected->first;
        if (step >= steps.size()) continue;
        auto [action, other] = steps[step++];
        switch (action) {
          case 0:  // the pattern of every all-keys handler
            erase(current, true);
            RC_ASSERT(it.currNodeStale() && it.currNodeMaybeStale().key == current);
            break;
          case 1:
          case 4:  // without taking the value back
            erase(other, true, action == 1);
            break;
          case 2:
            held[other] = m.newMemberG(other, Watched(other * 7, other));
            model.insert(other, other * 7);
            seen.clear();
            break;
          case 3:
            m._memberDelAll();
            model.entries.clear();
            held.clear();
            erasedInWalk = true;
            RC_ASSERT(allGone(0));
            break;
          case 6:  // the index rebuilt larger under the walk: nodes, order and lookups stay
            m.reserve(m.size() + static_cast<std::size_t>(other) * 3);
            break;
          default:
            break;
        }
        // Read back during the walk, the key it stands on too (gone after case 0).
        for (int k : {current, other}) {
          auto const* n = m.lookupNodeG(k);
          auto e = model.entries.find(k);
          RC_ASSERT((n != nullptr) == (e != model.entries.end()));
          if (n) RC_ASSERT(n->key == k && n->value.v == e->second.second);
        }
        checkHeld();
        RC_ASSERT(Watched::live == static_cast<int>(model.entries.size()));
      }
      RC_ASSERT(!model.nextAfter(last).has_value());
      if (std::exchange(erasedInWalk, false)) held.clear();
    }
    checkHeld();
    RC_ASSERT(m.size() == model.entries.size());
    RC_ASSERT(Watched::live == static_cast<int>(model.entries.size()));
    if (model.entries.empty()) RC_ASSERT(m.memoryBytes() == 0u);
    for (int k = 0; k < kKeys; ++k) {
      auto const* n = m.lookupNodeG(k);
      auto e = model.entries.find(k);
      RC_ASSERT((n != nullptr) == (e != model.entries.end()));
      if (n) RC_ASSERT(n->value.v == e->second.second);
    }
    RC_ASSERT(keysOf(m) == model.order());
  }
}

rc::Gen<std::vector<Op>> opsGen() {
  auto key = rc::gen::inRange(0, kKeys);
  auto steps = rc::gen::container<std::vector<std::pair<int, int>>>(rc::gen::pair(rc::gen::inRange(0, 7), key));
  return rc::gen::container<std::vector<Op>>(
      rc::gen::tuple(rc::gen::inRange(0, 11), key, rc::gen::arbitrary<int>(), steps));
}

RC_GTEST_PROP(HashMap2018Model, MatchesStdMapThroughWalksWithMutation, ()) {
  checkAgainstModel<Vok::Hash<int>>(*opsGen());
}

RC_GTEST_PROP(HashMap2018Model, MatchesStdMapWithCollidingKeys, ()) { checkAgainstModel<CollidingHash>(*opsGen()); }

}  // namespace
