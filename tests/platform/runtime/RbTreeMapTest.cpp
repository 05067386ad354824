#include <gtest/gtest.h>

#include <vector>

#include "runtime/Node.h"
#include "runtime/RbTreeMap.h"
#include "runtime/String.h"

namespace {

struct Vrf : Brix::Node {};
using IntTree = Vok::RbTreeMap<int, int>;

// The keys visited by a walk that calls `step` at each.
template <class F>
std::vector<int> walk(IntTree& t, F step) {
  std::vector<int> keys;
  for (auto it = t.iterator(); !it.done(); it.advance()) {
    keys.push_back(it.key());
    step(it);
  }
  return keys;
}

TEST(RbTreeMap, AscendingOrderAndNullForAbsent) {
  Vok::RbTreeMap<Vrf, Brix::String, Brix::Ptr<Vrf>> vrfs;
  auto red = Brix::newNode<Vrf>();
  EXPECT_TRUE(vrfs.insert("red", red));
  EXPECT_TRUE(vrfs.insert("blue", Brix::newNode<Vrf>()));
  EXPECT_TRUE(vrfs.insert("green", Brix::newNode<Vrf>()));
  EXPECT_FALSE(vrfs.insert("red", red)) << "a present key is replaced, not added";
  EXPECT_EQ(vrfs["black"], nullptr);
  std::vector<Brix::String> names;
  for (auto it = vrfs.iterator(); !it.done(); it.advance()) names.push_back(it.key());
  EXPECT_EQ(names, (std::vector<Brix::String>{"blue", "green", "red"}));
  Brix::Ptr<Vrf> out;
  EXPECT_TRUE(vrfs.erase("red", &out));
  EXPECT_EQ(out, red);
  EXPECT_FALSE(vrfs.erase("red"));
}

TEST(RbTreeMap, WalkToleratesChangesAroundTheCurrentKey) {
  IntTree t;
  for (int k : {50, 10, 40, 20, 30}) t.insert(k, k);
  // Erasing the current key at every step visits each key once; the key stays readable.
  EXPECT_EQ(walk(t,
                 [&](auto& it) {
                   int key = it.key();
                   t.erase(key);
                   EXPECT_EQ(it.key(), key);
                 }),
            (std::vector<int>{10, 20, 30, 40, 50}));
  EXPECT_TRUE(t.empty());

  // At 20: inserts before it are not visited, 20 is not visited again, the walk follows inserts
  // and erasures ahead.
  for (int k : {10, 20, 30, 40, 50}) t.insert(k, k);
  EXPECT_EQ(walk(t,
                 [&](auto& it) {
                   if (it.key() != 20) return;
                   for (int k : {15, 5, 35}) t.insert(k, k);
                   t.erase(40);
                 }),
            (std::vector<int>{10, 20, 30, 35, 50}));
  EXPECT_EQ(walk(t, [](auto&) {}), (std::vector<int>{5, 10, 15, 20, 30, 35, 50}));
  EXPECT_EQ(walk(t, [&](auto&) { t.clear(); }), std::vector<int>{5}) << "clearing the tree ends a walk";
}

}  // namespace
