// Whether both peers can take part in scheduled peer ARP synchronisation, as written to
// localVxStatus over the life of the state machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
  static Status status(bool advertised) {
    auto s = Brix::newNode<Mlag::VxlanStatus>();
    s->scheduledMlagPeerArpSyncIs(advertised);
    return s;
  }
  MlagVxlan::ScheduledMlagPeerArpSyncSm::Ptr smIs() {
    return container->scheduledMlagPeerArpSyncSmIs(sent, recv, local);
  }
  void peerAdvertises(bool on) { recv->scheduledMlagPeerArpSyncIs(on); }
  bool result() const { return local->scheduledMlagPeerArpSync(); }

  Status sent = status(false), recv = status(false), local = status(false);
  MlagVxlan::SmContainer::Ptr container = MlagVxlan::smContainerFactory("vxlan");
  std::vector<bool> written;  // localVxStatus's value at each of its publications
  PublicationRecorder writes{*local, [this](PublicationRecorder::Publication const& p) {
                               if (p.field == Mlag::VxlanStatus::scheduledMlagPeerArpSyncField)
                                 written.push_back(result());
                             }};
};

TEST_F(ScheduledMlagPeerArpSyncSmTest, FollowsThePeerWhileBothAdvertise) {
  sent->scheduledMlagPeerArpSyncIs(true);
  peerAdvertises(true);
  auto sm = smIs();
  peerAdvertises(false);
  peerAdvertises(true);
  EXPECT_THAT(written, ElementsAre(true, false, true));
  // Another field of the peer's status starts nothing: an outside write of the output stays.
  local->scheduledMlagPeerArpSyncIs(false);
  recv->peerArpByVlanIpCapableIs(true);
  EXPECT_FALSE(result());
  // A zombie drops the peer's change.
  sm->vokDoZombieReactors(true);
  peerAdvertises(false);
  peerAdvertises(true);
  EXPECT_FALSE(result());
  sm->vokDoZombieReactors(false);
  peerAdvertises(false);
  peerAdvertises(true);
  EXPECT_TRUE(result());
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, OwnAdvertisementCountsOnlyAtThePeersNextChangeOrARebuild) {
  peerAdvertises(true);
  smIs();
  sent->scheduledMlagPeerArpSyncIs(true);
  EXPECT_THAT(written, IsEmpty()) << "this side's advertisement is not subscribed";
  // Built anew, it sees both.
  (void)container->scheduledMlagPeerArpSyncSmDel();
  smIs();
  EXPECT_TRUE(result());
  sent->scheduledMlagPeerArpSyncIs(false);
  EXPECT_TRUE(result());
  peerAdvertises(false);
  peerAdvertises(true);
  EXPECT_FALSE(result()) << "the peer's change re-reads this side too";
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, NullInputsReadAsNoCapabilityAndANullOutputIsNeverWritten) {
  // A stale true from a former life shows that the first run writes the result.
  for (bool nullSent : {true, false}) {
    local->scheduledMlagPeerArpSyncIs(true);
    auto sm =
        scheduledMlagPeerArpSyncSmFactory(nullSent ? nullptr : status(true), nullSent ? status(true) : nullptr, local);
    EXPECT_FALSE(result()) << nullSent;
  }
  // Constructor, handler and destructor all meet the null output.
  auto peer = status(true);
  auto sm = scheduledMlagPeerArpSyncSmFactory(status(true), peer, nullptr);
  peer->scheduledMlagPeerArpSyncIs(false);
  sm = nullptr;
  EXPECT_EQ(peer->publisher()->subscriberCount(), 0u);
}

TEST_F(ScheduledMlagPeerArpSyncSmTest, ReplacingWithoutDelEndsWithTheOldObjectsFalseUntilThePeersNextChange) {
  peerAdvertises(true);
  smIs();
  // The new object's first run, then the old object's cleanup.
  auto fresh = container->scheduledMlagPeerArpSyncSmIs(status(true), recv, local);
  EXPECT_THAT(written, ElementsAre(true, false));
  peerAdvertises(false);
  peerAdvertises(true);
  EXPECT_TRUE(result());
  EXPECT_EQ(recv->publisher()->subscriberCount(), 1u) << "only the new object listens to the peer";
}

}  // namespace
