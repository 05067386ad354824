// Whether both peers can take part in scheduled peer ARP synchronisation, as written to
// localVxStatus over the life of the state machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "Vxlan/ScheduledMlagPeerArpSyncSm.h"
#include "Vxlan/SmContainer.h"
#include "entities/Mlag/VxlanStatus.h"
#include "runtime/Node.h"
#include "vxlan/PublicationRecorder.h"

namespace {

using MlagVxlan::scheduledMlagPeerArpSyncSmFactory;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::PublicationRecorder;
using Status = Brix::Ptr<Mlag::VxlanStatus>;

class ScheduledMlagPeerArpSyncSmTest : public ::testing::Test {
 protected:
  void SetUp() override {
    baseline_ = Brix::Node::liveCount();
    sent = Brix::newNode<Mlag::VxlanStatus>();
    recv = Brix::newNode<Mlag::VxlanStatus>();
    local = Brix::newNode<Mlag::VxlanStatus>();
    container = MlagVxlan::smContainerFactory("vxlan");
    writes.emplace(*local, [this](PublicationRecorder::Publication const& p) {
      if (p.field == Mlag::VxlanStatus::scheduledMlagPeerArpSyncField)
        written.push_back(local->scheduledMlagPeerArpSync());
    });
  }
  void TearDown() override {
    writes.reset();
    container = nullptr;
    sent = recv = local = nullptr;
    EXPECT_EQ(Brix::Node::liveCount(), baseline_) << "a teardown left nodes behind";
  }

  static Status status(bool advertised) {
    auto s = Brix::newNode<Mlag::VxlanStatus>();
    s->scheduledMlagPeerArpSyncIs(advertised);
    return s;
  }
  MlagVxlan::ScheduledMlagPeerArpSyncSm::Ptr smIs() {
    return container->scheduledMlagPeerArpSyncSmIs(sent, recv, local);
  }

  Status sent, recv, local;
  MlagVxlan::SmContainer::Ptr container;
  std::optional<PublicationRecorder> writes;
  std::vector<bool> written;  // localVxStatus's value at each of its publications

 private:
  std::int64_t baseline_ = 0;
};

TEST_F(ScheduledMlagPeerArpSyncSmTest, FollowsThePeerWhileBothAdvertise) {
  sent->scheduledMlagPeerArpSyncIs(true);
  recv->scheduledMlagPeerArpSyncIs(true);
  auto sm = smIs();
  EXPECT_TRUE(local->scheduledMlagPeerArpSync());

  recv->scheduledMlagPeerArpSyncIs(false);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
  recv->scheduledMlagPeerArpSyncIs(true);
  EXPECT_THAT(written, ElementsAre(true, false, true));

  // Another field of the peer's status starts nothing: an outside write of the output stays.
  local->scheduledMlagPeerArpSyncIs(false);
  recv->peerArpByVlanIpCapableIs(true);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
  recv->scheduledMlagPeerArpSyncIs(false);
  recv->scheduledMlagPeerArpSyncIs(true);
  EXPECT_TRUE(local->scheduledMlagPeerArpSync());

  // A zombie drops the peer's change.
  sm->vokDoZombieReactors(true);
  recv->scheduledMlagPeerArpSyncIs(false);
  EXPECT_TRUE(local->scheduledMlagPeerArpSync());
  sm->vokDoZombieReactors(false);
  recv->scheduledMlagPeerArpSyncIs(true);
  recv->scheduledMlagPeerArpSyncIs(false);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, OwnAdvertisementCountsOnlyAtThePeersNextChangeOrARebuild) {
  recv->scheduledMlagPeerArpSyncIs(true);
  smIs();
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());

  sent->scheduledMlagPeerArpSyncIs(true);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync()) << "this side's advertisement is not subscribed";
  EXPECT_THAT(written, IsEmpty());

  // Built anew, it sees both.
  (void)container->scheduledMlagPeerArpSyncSmDel();
  smIs();
  EXPECT_TRUE(local->scheduledMlagPeerArpSync());

  sent->scheduledMlagPeerArpSyncIs(false);
  EXPECT_TRUE(local->scheduledMlagPeerArpSync());
  recv->scheduledMlagPeerArpSyncIs(false);
  recv->scheduledMlagPeerArpSyncIs(true);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync()) << "the peer's change re-reads this side too";
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, NullInputsReadAsNoCapability) {
  // A stale true from a former life shows that the first run writes the result.
  local->scheduledMlagPeerArpSyncIs(true);
  auto noSent = scheduledMlagPeerArpSyncSmFactory(nullptr, status(true), local);
  EXPECT_TRUE(noSent->hasNotificationActive());
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
  noSent = nullptr;

  local->scheduledMlagPeerArpSyncIs(true);
  auto noRecv = scheduledMlagPeerArpSyncSmFactory(status(true), nullptr, local);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
  noRecv = nullptr;
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, NullOutputLivesAndEndsWithoutWriting) {
  // Constructor, handler and destructor all meet the null output.
  auto peer = status(true);
  auto sm = scheduledMlagPeerArpSyncSmFactory(status(true), peer, nullptr);
  EXPECT_EQ(peer->publisher()->subscriberCount(), 1u);
  peer->scheduledMlagPeerArpSyncIs(false);
  peer->scheduledMlagPeerArpSyncIs(true);
  sm = nullptr;
  EXPECT_EQ(peer->publisher()->subscriberCount(), 0u);
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, SameArgumentsGiveTheSameObjectAndNoWrite) {
  sent->scheduledMlagPeerArpSyncIs(true);
  recv->scheduledMlagPeerArpSyncIs(true);
  auto sm = smIs();
  PublicationRecorder changes(*container);
  // Someone else writes the output: a rebuild or a rerun would put true back.
  local->scheduledMlagPeerArpSyncIs(false);
  written.clear();

  EXPECT_EQ(smIs(), sm);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
  EXPECT_THAT(written, IsEmpty());
  EXPECT_THAT(changes.publications(), IsEmpty());
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, ReplacingWithoutDelEndsWithTheOldObjectsFalse) {
  sent->scheduledMlagPeerArpSyncIs(false);
  recv->scheduledMlagPeerArpSyncIs(true);
  auto old = smIs().get();
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());

  // The new object's first run, then the old object's cleanup.
  auto fresh = container->scheduledMlagPeerArpSyncSmIs(status(true), recv, local);
  EXPECT_NE(fresh.get(), old);
  EXPECT_THAT(written, ElementsAre(true, false));
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());

  // The next notification puts it right.
  recv->scheduledMlagPeerArpSyncIs(false);
  recv->scheduledMlagPeerArpSyncIs(true);
  EXPECT_TRUE(local->scheduledMlagPeerArpSync());
  EXPECT_EQ(recv->publisher()->subscriberCount(), 1u) << "only the new object listens to the peer";
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, DelThenDropLeavesFalse) {
  sent->scheduledMlagPeerArpSyncIs(true);
  recv->scheduledMlagPeerArpSyncIs(true);
  smIs();
  ASSERT_TRUE(local->scheduledMlagPeerArpSync());

  auto former = container->scheduledMlagPeerArpSyncSmDel();
  ASSERT_NE(former, nullptr);
  EXPECT_TRUE(local->scheduledMlagPeerArpSync()) << "the cleanup waits for the last use";
  EXPECT_EQ(recv->publisher()->subscriberCount(), 0u) << "a deleted child hears nothing more";
  former = nullptr;
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());

  recv->scheduledMlagPeerArpSyncIs(false);
  recv->scheduledMlagPeerArpSyncIs(true);
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
}

}  // namespace
