// Shoal tables: reads of absent keys, and damage found by a read or by a step of a walk, handled
// the way every reader handles it: report to the table, take the default, carry on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "entities/Shoal/Status.h"

namespace {

using Bridging::HostKey;
using Bridging::VlanId;
using Lanx::EthAddr;
using Shoal::Bridging::ShoalFdbStatus;
using Table = Shoal::ShoalMap<HostKey, ShoalFdbStatus>;

HostKey keyOf(int i) { return HostKey(VlanId(10), EthAddr(0, 0, static_cast<std::uint16_t>(i))); }

ShoalFdbStatus entryOf(int i) {
  return ShoalFdbStatus(keyOf(i), Lanx::IntfId("Ethernet1"), 100.0 + i, 1, Bridging::EntryType::learnedDynamicMac);
}

// The reader's side of a read by key.
ShoalFdbStatus readEntry(Table const& table, HostKey const& key, bool* found) {
  try {
    return table.get(key, found);
  } catch (Brix::CorruptionDetectedException const& e) {
    table.doCorruptionDetected(e.what());
    *found = false;
    return ShoalFdbStatus();
  }
}

// The reader's side of a walk: what it saw before any damage stopped it.
std::vector<HostKey> walkKeys(Table const& table) {
  std::vector<HostKey> keys;
  try {
    Shoal::IterHint hint;
    HostKey key;
    for (bool more = table.first(hint, &key); more; more = table.next(hint, &key)) keys.push_back(key);
  } catch (Brix::CorruptionDetectedException const& e) {
    table.doCorruptionDetected(e.what());
  }
  return keys;
}

class ShoalMapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 1; i <= 4; ++i) status->shoalFdbStatusIs(keyOf(i), entryOf(i));
  }
  Brix::Ptr<Shoal::Bridging::Status> status = Brix::newNode<Shoal::Bridging::Status>();
  Table const& table = status->shoalFdbStatus();
};

TEST_F(ShoalMapTest, AbsentKeyGivesTheDefaultRecordAndNotFound) {
  bool found = true;
  EXPECT_EQ(table.get(keyOf(9), &found), ShoalFdbStatus());
  EXPECT_FALSE(found);
  EXPECT_EQ(table.get(keyOf(2), &found), entryOf(2));
  EXPECT_TRUE(found);
  EXPECT_EQ(table.get(keyOf(3)), entryOf(3)) << "the found flag is optional";
  EXPECT_EQ(table.corruptionReports(), 0u);
}

TEST_F(ShoalMapTest, ChosenReadRaisesOnceAndTheReaderTakesTheDefault) {
  status->shoalFdbStatusIs(keyOf(1), entryOf(1));  // writes are not reads: no countdown
  table.corruptReadIs(2);
  bool found = false;
  EXPECT_EQ(readEntry(table, keyOf(1), &found), entryOf(1));
  EXPECT_TRUE(found);
  EXPECT_THROW(table.get(keyOf(2)), Brix::CorruptionDetectedException) << "the second read from now";
  EXPECT_EQ(table.get(keyOf(2)), entryOf(2)) << "and only that one";

  table.corruptReadIs(1);
  found = true;
  EXPECT_EQ(readEntry(table, keyOf(2), &found), ShoalFdbStatus());
  EXPECT_FALSE(found);
  EXPECT_EQ(table.corruptionReports(), 1u);
  EXPECT_EQ(table.lastCorruption(), Brix::String("Shoal table damaged at read"));
  EXPECT_EQ(readEntry(table, keyOf(2), &found), entryOf(2));
  EXPECT_EQ(table.corruptionReports(), 1u);
}

TEST_F(ShoalMapTest, ChosenWalkStepRaisesAndTheReaderStopsThere) {
  EXPECT_EQ(walkKeys(table), (std::vector<HostKey>{keyOf(1), keyOf(2), keyOf(3), keyOf(4)}));

  table.corruptWalkStepIs(3);
  bool found = false;
  EXPECT_EQ(table.get(keyOf(4), &found), entryOf(4)) << "reads by key do not count as steps";
  EXPECT_EQ(walkKeys(table), (std::vector<HostKey>{keyOf(1), keyOf(2)}));
  EXPECT_EQ(table.corruptionReports(), 1u);
  EXPECT_EQ(table.lastCorruption(), Brix::String("Shoal table damaged at walk"));

  // The end of a walk is a step too.
  table.corruptWalkStepIs(5);
  EXPECT_EQ(walkKeys(table).size(), 4u);
  EXPECT_EQ(table.corruptionReports(), 2u);
  EXPECT_EQ(walkKeys(table).size(), 4u);
  EXPECT_EQ(table.corruptionReports(), 2u);
}

TEST_F(ShoalMapTest, WalkGivesRecordsAndSkipsDeletedEntries) {
  status->shoalFdbStatusDel(keyOf(2));
  Shoal::IterHint hint;
  HostKey key;
  ShoalFdbStatus rec;
  std::vector<ShoalFdbStatus> seen;
  for (bool more = table.first(hint, &key, &rec); more; more = table.next(hint, &key, &rec)) {
    EXPECT_EQ(rec.key(), key);
    seen.push_back(rec);
    if (key == keyOf(3)) status->shoalFdbStatusDel(keyOf(4));  // written while a reader walks
  }
  EXPECT_EQ(seen, (std::vector<ShoalFdbStatus>{entryOf(1), entryOf(3)}));
}

}  // namespace
