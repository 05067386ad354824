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
  void SetUp() override {
    baseline_ = Brix::Node::liveCount();
    sent = Brix::newNode<Mlag::VxlanStatus>();
    recv = Brix::newNode<Mlag::VxlanStatus>();
    local = Brix::newNode<Mlag::VxlanStatus>();
    sent->scheduledMlagPeerArpSyncIs(true);
    recv->scheduledMlagPeerArpSyncIs(true);
  }
  void TearDown() override {
    sent = recv = local = nullptr;
    EXPECT_EQ(Brix::Node::liveCount(), baseline_) << "a teardown left nodes behind";
  }

  Brix::Ptr<Mlag::VxlanStatus> sent, recv, local;

 private:
  std::int64_t baseline_ = 0;
};

TEST_F(SmContainerTest, ChildAttributePublishesEachComingAndGoing) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  EXPECT_EQ(c->nameString(), Brix::String("vxlan"));
  PublicationRecorder rec(*c);

  EXPECT_EQ(c->scheduledMlagPeerArpSyncSmDel(), nullptr);
  EXPECT_THAT(rec.publications(), ::testing::IsEmpty()) << "a Del of an absent child publishes nothing";

  auto sm = c->scheduledMlagPeerArpSyncSmIs(sent, recv, local);
  ASSERT_NE(sm, nullptr);
  EXPECT_EQ(c->scheduledMlagPeerArpSyncSm(), sm);
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_EQ(c->scheduledMlagPeerArpSyncSmIs(sent, recv, local), sm);
  ASSERT_EQ(rec.publications().size(), 1u);
  EXPECT_EQ(rec.publications()[0].field, MlagVxlan::SmContainer::scheduledMlagPeerArpSyncSmField);
  EXPECT_EQ(rec.publications()[0].key, nullptr);
  EXPECT_EQ(rec.publications()[0].value, nullptr);

  auto former = c->scheduledMlagPeerArpSyncSmDel();
  EXPECT_EQ(former, sm);
  EXPECT_EQ(c->scheduledMlagPeerArpSyncSm(), nullptr);
  ASSERT_EQ(rec.publications().size(), 2u);
  EXPECT_EQ(rec.publications()[1].field, MlagVxlan::SmContainer::scheduledMlagPeerArpSyncSmField);
  EXPECT_EQ(rec.publications()[1].value, sm.get());
  EXPECT_FALSE(former->hasNotificationActive());
}

TEST_F(SmContainerTest, TeardownDeletesEachChildAndEndsItBeforeGoingOn) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  auto* child = c->scheduledMlagPeerArpSyncSmIs(sent, recv, local).get();
  ASSERT_TRUE(local->scheduledMlagPeerArpSync());

  // The removal goes out while the child still stands; its cleanup follows at once.
  std::optional<bool> localAtPublication;
  void const* published = nullptr;
  PublicationRecorder rec(*c, [&](PublicationRecorder::Publication const& p) {
    localAtPublication = local->scheduledMlagPeerArpSync();
    published = p.value;
  });
  c = nullptr;
  EXPECT_EQ(rec.publications().size(), 1u);
  EXPECT_EQ(published, child);
  EXPECT_EQ(localAtPublication, std::optional<bool>(true));
  EXPECT_FALSE(local->scheduledMlagPeerArpSync());
  EXPECT_EQ(recv->publisher()->subscriberCount(), 0u);
}

TEST_F(SmContainerTest, ContainersShareOneTraceHandle) {
  auto a = MlagVxlan::smContainerFactory("a");
  RingLog::TraceHandle* handle = MlagVxlan::vxlanRlHandle();
  ASSERT_NE(handle, nullptr);
  // RINGLOGDIR is set for the whole test process: no process id in the name, and the file is
  // made in that directory.
  std::filesystem::path file(handle->fileName());
  EXPECT_EQ(file.filename(), "Mlag-Vxlan.rl");
  EXPECT_EQ(file.parent_path(), std::filesystem::path(std::getenv("RINGLOGDIR")));
  EXPECT_TRUE(std::filesystem::exists(file)) << handle->error();
  EXPECT_EQ(handle->sizes().size, MlagVxlan::vxlanRlSizeSpec().size);

  MlagVxlan::SmContainer::Ptr b;
  MlagVxlan::SmContainer::SmContainerIs(b, "b");
  auto c = Brix::newNode<MlagVxlan::SmContainer>("c");
  c->handleInitialized();
  EXPECT_EQ(MlagVxlan::vxlanRlHandle(), handle);
  EXPECT_EQ(b->nameString(), Brix::String("b"));
}

TEST_F(SmContainerTest, TraceFileNameFollowsRingLogDir) {
  char const* saved = std::getenv("RINGLOGDIR");
  std::string dir = saved ? saved : "";
  ::unsetenv("RINGLOGDIR");
  EXPECT_EQ(MlagVxlan::vxlanRlFileName(), "Mlag-Vxlan-%d.rl");
  ::setenv("RINGLOGDIR", dir.c_str(), 1);
  EXPECT_EQ(MlagVxlan::vxlanRlFileName(), "Mlag-Vxlan.rl");

  // Levels 5 and 6, the ones the system writes, get the large rings.
  RingLog::SizeSpec sizes = MlagVxlan::vxlanRlSizeSpec();
  EXPECT_THAT(sizes.size, ::testing::ElementsAre(32u, 8u, 8u, 8u, 8u, 256u, 256u, 8u, 8u, 8u));
}

TEST_F(SmContainerTest, DirectoryMakesTheContainerFromItsNameAlone) {
  auto dir = Brix::newNode<Vok::Dir>("agent");
  auto c = dir->entityNew<MlagVxlan::SmContainer>("vxlan");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->nameString(), Brix::String("vxlan"));
  EXPECT_EQ(dir->entityAs<MlagVxlan::SmContainer>("vxlan"), c);
  EXPECT_NE(MlagVxlan::vxlanRlHandle(), nullptr);

  EXPECT_THROW(dir->entityNew<MlagVxlan::SmContainer>("other", Brix::String("x")), Vok::NewEntityArgsException);
  EXPECT_EQ(dir->entityCount(), 1u) << "a refused creation adds nothing";
  EXPECT_EQ(dir->entityAs<MlagVxlan::SmContainer>("vxlan"), c);
}

}  // namespace
