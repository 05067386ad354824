// The container: its child attribute's publications, its teardown, the process-wide trace
// handle, and creation through a directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "Vxlan/SmContainer.h"
#include "entities/Mlag/VxlanStatus.h"
#include "runtime/Dir.h"
#include "runtime/Exceptions.h"
#include "runtime/Node.h"
#include "support/RingLogDir.h"
#include "vxlan/PublicationRecorder.h"

namespace {

using TestSupport::PublicationRecorder;

// Every process that makes a container traces into a directory of its own, removed afterwards.
MLAGVXLAN_TEST_RINGLOGDIR();

class SmContainerTest : public ::testing::Test {
 protected:
  SmContainerTest() {
    sent->scheduledMlagPeerArpSyncIs(true);
    recv->scheduledMlagPeerArpSyncIs(true);
  }
  Brix::Ptr<Mlag::VxlanStatus> sent = Brix::newNode<Mlag::VxlanStatus>(), recv = Brix::newNode<Mlag::VxlanStatus>(),
                               local = Brix::newNode<Mlag::VxlanStatus>();
};

TEST_F(SmContainerTest, ChildAttributePublishesEachComingAndGoingAndTheTeardownEndsEachChild) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  PublicationRecorder rec(*c);
  EXPECT_EQ(c->scheduledMlagPeerArpSyncSmDel(), nullptr) << "a Del of an absent child publishes nothing";
  auto sm = c->scheduledMlagPeerArpSyncSmIs(sent, recv, local);
  EXPECT_EQ(c->scheduledMlagPeerArpSyncSmIs(sent, recv, local), sm);
  auto former = c->scheduledMlagPeerArpSyncSmDel();
  EXPECT_EQ(former, sm);
  EXPECT_EQ(c->scheduledMlagPeerArpSyncSm(), nullptr);
  EXPECT_FALSE(former->hasNotificationActive());
  ASSERT_EQ(rec.publications().size(), 2u);
  EXPECT_EQ(rec.publications()[0].value, nullptr);
  EXPECT_EQ(rec.publications()[1].field, MlagVxlan::SmContainer::scheduledMlagPeerArpSyncSmField);
  EXPECT_EQ(rec.publications()[1].value, sm.get()) << "the former child goes out as the value";
  former = sm = nullptr;

  // The teardown publishes the removal while the child still stands; its cleanup follows at once.
  auto* child = c->scheduledMlagPeerArpSyncSmIs(sent, recv, local).get();
  std::optional<bool> localAtPublication;
  PublicationRecorder probe(*c, [&](PublicationRecorder::Publication const& p) {
    if (p.value == child) localAtPublication = local->scheduledMlagPeerArpSync();
  });
  c = nullptr;
  EXPECT_EQ(localAtPublication, std::optional<bool>(true));
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
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
  (void)MlagVxlan::smContainerFactory("c");
  EXPECT_EQ(MlagVxlan::vxlanRlHandle(), handle);
}

}  // namespace
