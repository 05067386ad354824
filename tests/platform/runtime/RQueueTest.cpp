#include <gtest/gtest.h>

#include <utility>

#include "runtime/Node.h"
#include "runtime/RQueue.h"

namespace {

TEST(RQueue, FifoAcrossManyChunks) {
  Brix::RQueue<int> q;
  int next = 0;
  // Interleaved so that the head chunk is emptied and dropped while later chunks fill.
  for (int i = 0; i < 50000; ++i) {
    q.push(i);
    ASSERT_EQ(q.back(), i);
    if (i % 3 == 0) {
      ASSERT_EQ(q.front(), next++);
      q.pop();
    }
  }
  EXPECT_EQ(q.size(), static_cast<std::size_t>(50000 - next));
  for (; !q.empty(); q.pop()) ASSERT_EQ(q.front(), next++);
  EXPECT_EQ(next, 50000);
  EXPECT_EQ(q.chunkCountForTest(), 0u);
}

TEST(RQueue, ChunksDoubleFrom4To8192AndClearStartsSmallAgain) {
  Brix::RQueue<int> q;
  auto chunksAt = [&q](int n) {
    while (q.size() < static_cast<std::size_t>(n)) q.push(0);
    return q.chunkCountForTest();
  };
  // Capacities 4, 8, 16, ... 8192, then 8192 again.
  std::pair<int, unsigned> const sizes[] = {
      {4, 1}, {5, 2}, {8, 2}, {9, 3}, {17, 4}, {16384, 13}, {16385, 14}, {16384 + 8192, 14}, {16384 + 8192 + 1, 15}};
  for (auto [n, chunks] : sizes) EXPECT_EQ(chunksAt(n), chunks) << n;
  q.clear();
  EXPECT_EQ(q.chunkCountForTest(), 0u);
  EXPECT_EQ(chunksAt(5), 2u);
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
}

}  // namespace
