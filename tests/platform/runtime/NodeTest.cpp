#include <gtest/gtest.h>

#include "runtime/Node.h"

TEST(Node, Placeholder) { EXPECT_EQ(1, 1); }
