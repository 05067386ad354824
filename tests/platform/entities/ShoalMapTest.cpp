// Shoal tables: reads of absent keys, walks, and damage raised at the chosen reads and steps. How
// a reader handles the damage is tested through the readers (RemoteHostTableSmTest).
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

// One script of accesses, alternating reads (get and has) and walk steps, under each kind of
// damage: which of them raise, and with the caller's message.
TEST_F(ShoalMapTest, DamageRaisesAtTheChosenAccesses) {
  using At = Shoal::ShoalMapBase::DamageAt;
  struct Case {
    At at;
    std::uint32_t n;
    std::string raised;  // per access of the script: 'x' raised, '.' did not
  };
  for (auto const& c :
       {Case{At::nothing, 1, "......"}, Case{At::every, 0, "xxxxxx"}, Case{At::nth, 1, "x....."},
        Case{At::nth, 4, "...x.."}, Case{At::nthOfEach, 2, "..xx.."}, Case{At::nthOfEach, 3, "....xx"}}) {
    table.damageIs(c.at, c.n, "bad page 7");
    Shoal::IterHint hint;
    HostKey key;
    std::string raised;
    for (int i = 0; i < 6; ++i) {
      try {
        if (i % 2 == 1) {
          (void)table.next(hint, &key);
        } else if (i == 2) {
          (void)table.has(keyOf(1));  // has reads like get
        } else {
          (void)table.get(keyOf(1));
        }
        raised += '.';
      } catch (Brix::CorruptionDetectedException const& e) {
        EXPECT_STREQ(e.what(), "bad page 7");
        raised += 'x';
      }
    }
    EXPECT_EQ(raised, c.raised) << "damage kind " << int(c.at) << " n " << c.n;
  }
  table.damageIs(At::nothing);
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
