#include <gtest/gtest.h>

#include <vector>

#include "runtime/Node.h"
#include "runtime/RbTreeMap.h"
#include "runtime/String.h"

namespace {

struct Vrf : Brix::Node {};
using IntTree = Vok::RbTreeMap<int, int>;

std::vector<int> walk(IntTree const& t) {
  std::vector<int> keys;
  for (auto it = t.iterator(); !it.done(); it.advance()) keys.push_back(it.key());
  return keys;
}

TEST(RbTreeMap, AscendingOrderAndNullForAbsent) {
  Vok::RbTreeMap<Vrf, Brix::String, Brix::Ptr<Vrf>> vrfs;
  auto red = Brix::newNode<Vrf>();
  EXPECT_TRUE(vrfs.insert("red", red));
  EXPECT_TRUE(vrfs.insert("blue", Brix::newNode<Vrf>()));
  EXPECT_TRUE(vrfs.insert("green", Brix::newNode<Vrf>()));
  EXPECT_FALSE(vrfs.insert("red", red)) << "a present key is replaced, not added";
  EXPECT_EQ(vrfs["red"], red);
  EXPECT_EQ(vrfs["black"], nullptr);
  EXPECT_EQ(vrfs.find("black"), nullptr);

  std::vector<Brix::String> names;
  for (auto it = vrfs.iterator(); !it.done(); it.advance()) names.push_back(it.key());
  EXPECT_EQ(names, (std::vector<Brix::String>{"blue", "green", "red"}));

  Brix::Ptr<Vrf> out;
  EXPECT_TRUE(vrfs.erase("red", &out));
  EXPECT_EQ(out, red);
  EXPECT_FALSE(vrfs.erase("red"));
  EXPECT_EQ(vrfs.size(), 2u);
}

TEST(RbTreeMap, WalkToleratesChangesAroundTheCurrentKey) {
  IntTree t;
  for (int k : {50, 10, 40, 20, 30}) t.insert(k, k);

  // Erasing the current key at every step visits each key once and empties the tree.
  std::vector<int> visited;
  for (auto it = t.iterator(); !it.done(); it.advance()) {
    int key = it.key();
    visited.push_back(key);
    t.erase(key);
    EXPECT_EQ(it.key(), key) << "the erased key stays readable until the walk advances";
  }
  EXPECT_EQ(visited, (std::vector<int>{10, 20, 30, 40, 50}));
  EXPECT_TRUE(t.empty());

  // At 20: insert before it (not visited, and 20 not visited again), insert after it and
  // erase ahead (the walk follows the present keys).
  for (int k : {10, 20, 30, 40, 50}) t.insert(k, k);
  visited.clear();
  for (auto it = t.iterator(); !it.done(); it.advance()) {
    visited.push_back(it.key());
    if (it.key() == 20) {
      t.insert(15, 15);
      t.insert(5, 5);
      t.insert(35, 35);
      t.erase(40);
      EXPECT_EQ(it.value(), 20);
    }
  }
  EXPECT_EQ(visited, (std::vector<int>{10, 20, 30, 35, 50}));
  EXPECT_EQ(walk(t), (std::vector<int>{5, 10, 15, 20, 30, 35, 50}));

  // Clearing the tree in a walk ends it.
  visited.clear();
  for (auto it = t.iterator(); !it.done(); it.advance()) {
    visited.push_back(it.key());
    t.clear();
  }
  EXPECT_EQ(visited, std::vector<int>{5});
}

}  // namespace
