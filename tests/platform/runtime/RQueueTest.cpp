#include <gtest/gtest.h>

#include <memory>

#include "runtime/Node.h"
#include "runtime/RQueue.h"

namespace {

TEST(RQueue, FifoAcrossManyChunks) {
  Brix::RQueue<int> q;
  EXPECT_TRUE(q.empty());
  int next = 0;
  // Interleaved so that the head chunk is emptied and dropped while later chunks fill.
  for (int i = 0; i < 50000; ++i) {
    q.push(i);
    EXPECT_EQ(q.back(), i);
    if (i % 3 == 0) {
      ASSERT_EQ(q.front(), next);
      q.pop();
      ++next;
    }
  }
  EXPECT_EQ(q.size(), static_cast<std::size_t>(50000 - next));
  while (!q.empty()) {
    ASSERT_EQ(q.front(), next++);
    q.pop();
  }
  EXPECT_EQ(next, 50000);
  EXPECT_EQ(q.chunkCountForTest(), 0u);
  q.push(7);
  EXPECT_EQ(q.front(), 7);
  EXPECT_EQ(q.back(), 7);
}

TEST(RQueue, ChunksAreSizedAfterTheLengthFrom4To8192) {
  Brix::RQueue<int> q;
  // Push until `n` elements are queued and return the number of chunks.
  auto chunksAt = [&q](int n) {
    while (q.size() < static_cast<std::size_t>(n)) q.push(0);
    return q.chunkCountForTest();
  };
  EXPECT_EQ(chunksAt(4), 1u);  // the smallest chunk holds 4
  EXPECT_EQ(chunksAt(5), 2u);
  EXPECT_EQ(chunksAt(8), 2u);
  EXPECT_EQ(chunksAt(9), 3u);  // then each new chunk doubles the capacity: 8, 16, ...
  EXPECT_EQ(chunksAt(16), 3u);
  EXPECT_EQ(chunksAt(17), 4u);
  EXPECT_EQ(chunksAt(16384), 13u);  // the chunk added at 8192 holds 8192
  EXPECT_EQ(chunksAt(16385), 14u);
  EXPECT_EQ(chunksAt(16384 + 8192), 14u);  // and none is larger
  EXPECT_EQ(chunksAt(16384 + 8192 + 1), 15u);

  q.clear();
  EXPECT_TRUE(q.empty());
  EXPECT_EQ(q.chunkCountForTest(), 0u);
  EXPECT_EQ(chunksAt(5), 2u) << "a queue emptied by clear starts small again";
}

TEST(RQueue, DestroysItsElements) {
  struct Item : Brix::Node {};
  auto const base = Brix::Node::liveCount();
  {
    Brix::RQueue<Brix::Ptr<Item>> q;
    for (int i = 0; i < 100; ++i) q.push(Brix::newNode<Item>());
    for (int i = 0; i < 30; ++i) q.pop();
    EXPECT_EQ(Brix::Node::liveCount(), base + 70);
    q.clear();
    EXPECT_EQ(Brix::Node::liveCount(), base);
    for (int i = 0; i < 50; ++i) q.push(Brix::newNode<Item>());
  }
  EXPECT_EQ(Brix::Node::liveCount(), base) << "the destructor releases what is left";

  // A move-only element; ASan reports anything left behind.
  Brix::RQueue<std::unique_ptr<int>> owned;
  for (int i = 0; i < 1000; ++i) owned.push(std::make_unique<int>(i));
  EXPECT_EQ(*owned.front(), 0);
  EXPECT_EQ(*owned.back(), 999);
  owned.pop();
  EXPECT_EQ(*owned.front(), 1);
}

}  // namespace
