// The container: its child attribute's publications, its teardown, the process-wide trace
// handle, creation through a directory; and its child that writes to localVxStatus whether both
// peers can take part in scheduled peer ARP synchronisation.
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "Vxlan/ScheduledMlagPeerArpSyncSm.h"
#include "runtime/Dir.h"
#include "vxlan/Harness.h"

namespace {

using namespace TestSupport;
using Status = Brix::Ptr<Mlag::VxlanStatus>;

// Every process that makes a container traces into a directory of its own, removed afterwards.
MLAGVXLAN_TEST_RINGLOGDIR();

Status status(bool advertised) {
  auto s = Brix::newNode<Mlag::VxlanStatus>();
  s->scheduledMlagPeerArpSyncIs(advertised);
  return s;
}

class SmContainerTest : public ::testing::Test {
 protected:
  MlagVxlan::ScheduledMlagPeerArpSyncSm::Ptr smIs() {
    return container->scheduledMlagPeerArpSyncSmIs(sent, recv, local);
  }
  void peerFlaps() {
    recv->scheduledMlagPeerArpSyncIs(false);
    recv->scheduledMlagPeerArpSyncIs(true);
  }
  bool result() const { return local->scheduledMlagPeerArpSync(); }

  Status sent = status(false), recv = status(true), local = status(false);
  MlagVxlan::SmContainer::Ptr container = MlagVxlan::smContainerFactory("vxlan");
  std::vector<bool> written;  // localVxStatus's value at each of its publications
  PublicationRecorder writes{*local, [this](PublicationRecorder::Publication const& p) {
                               if (p.field == Mlag::VxlanStatus::scheduledMlagPeerArpSyncField)
                                 written.push_back(result());
                             }};
};

TEST_F(SmContainerTest, ChildAttributePublishesEachComingAndGoingAndTheTeardownEndsEachChild) {
  sent->scheduledMlagPeerArpSyncIs(true);
  PublicationRecorder rec(*container);
  EXPECT_EQ(container->scheduledMlagPeerArpSyncSmDel(), nullptr) << "a Del of an absent child publishes nothing";
  auto sm = smIs();
  EXPECT_EQ(smIs(), sm);
  auto former = container->scheduledMlagPeerArpSyncSmDel();
  EXPECT_EQ(former, sm);
  EXPECT_EQ(container->scheduledMlagPeerArpSyncSm(), nullptr);
  EXPECT_FALSE(former->hasNotificationActive());
  ASSERT_EQ(rec.publications().size(), 2u);
  EXPECT_EQ(rec.publications()[0].value, nullptr);
  EXPECT_EQ(rec.publications()[1].field, MlagVxlan::SmContainer::scheduledMlagPeerArpSyncSmField);
  EXPECT_EQ(rec.publications()[1].value, sm.get()) << "the former child goes out as the value";
  former = sm = nullptr;

  // Replaced without a Del: the new object's first run, then the old object's false, which
  // stands until the peer's next change; only the new object listens.
  sent->scheduledMlagPeerArpSyncIs(false);
  smIs();
  container->scheduledMlagPeerArpSyncSmIs(status(true), recv, local);
  EXPECT_THAT(written, ElementsAre(true, false, true, false));
  peerFlaps();
  EXPECT_TRUE(result());
  EXPECT_EQ(recv->publisher()->subscriberCount(), 1u);

  // The teardown publishes the removal while the child still stands; its cleanup follows at once.
  auto* child = container->scheduledMlagPeerArpSyncSm().get();
  std::optional<bool> localAtPublication;
  PublicationRecorder probe(*container, [&](PublicationRecorder::Publication const& p) {
    if (p.value == child) localAtPublication = result();
  });
  container = nullptr;
  EXPECT_EQ(localAtPublication, std::optional<bool>(true));
  EXPECT_FALSE(result());
  EXPECT_EQ(recv->publisher()->subscriberCount(), 0u);
}

TEST_F(SmContainerTest, ContainersShareOneTraceHandleMadeHoweverTheContainerIs) {
  auto dir = Brix::newNode<Vok::Dir>("agent");
  auto a = dir->entityNew<MlagVxlan::SmContainer>("vxlan");  // from its name alone
  RingLog::TraceHandle* handle = MlagVxlan::vxlanRlHandle();
  ASSERT_NE(handle, nullptr);
  // RINGLOGDIR is set for the whole test process: no process id in the name.
  EXPECT_EQ(handle->fileName(), std::string(std::getenv("RINGLOGDIR")) + "/Mlag-Vxlan.rl");
  EXPECT_TRUE(std::filesystem::exists(handle->fileName())) << handle->error();
  MlagVxlan::SmContainer::Ptr b;
  MlagVxlan::SmContainer::SmContainerIs(b, "b");
  EXPECT_EQ(MlagVxlan::vxlanRlHandle(), handle);
}

// Only the peer's advertisement is subscribed; its change re-reads this side's, as a rebuild does.
TEST_F(SmContainerTest, ArpSyncFollowsThePeerWhileBothAdvertise) {
  smIs();
  sent->scheduledMlagPeerArpSyncIs(true);
  EXPECT_THAT(written, IsEmpty()) << "this side's advertisement is not subscribed";
  peerFlaps();
  sent->scheduledMlagPeerArpSyncIs(false);
  EXPECT_TRUE(result());
  peerFlaps();
  EXPECT_THAT(written, ElementsAre(true, false));
  sent->scheduledMlagPeerArpSyncIs(true);
  (void)container->scheduledMlagPeerArpSyncSmDel();
  auto sm = smIs();
  EXPECT_TRUE(result());
  // Another field of the peer's status starts nothing: an outside write of the output stays.
  local->scheduledMlagPeerArpSyncIs(false);
  recv->peerArpByVlanIpCapableIs(true);
  EXPECT_FALSE(result());
  // A zombie drops the peer's change.
  sm->vokDoZombieReactors(true);
  peerFlaps();
  EXPECT_FALSE(result());
  sm->vokDoZombieReactors(false);
  peerFlaps();
  EXPECT_TRUE(result());
}

TEST_F(SmContainerTest, ArpSyncReadsNullInputsAsNoCapabilityAndNeverWritesANullOutput) {
  // A stale true from a former life shows that the first run writes the result.
  for (bool nullSent : {true, false}) {
    local->scheduledMlagPeerArpSyncIs(true);
    auto sm = MlagVxlan::scheduledMlagPeerArpSyncSmFactory(nullSent ? nullptr : status(true),
                                                           nullSent ? status(true) : nullptr, local);
    EXPECT_FALSE(result()) << nullSent;
  }
  // Constructor, handler and destructor all meet the null output.
  auto sm = MlagVxlan::scheduledMlagPeerArpSyncSmFactory(status(true), recv, nullptr);
  recv->scheduledMlagPeerArpSyncIs(false);
  sm = nullptr;
  EXPECT_EQ(recv->publisher()->subscriberCount(), 0u);
}

}  // namespace
