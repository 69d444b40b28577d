#include "platform/vok/Assert.h"

#include <gtest/gtest.h>

namespace {

TEST(VokAssert, StopsTheProcessWithItsFixedText) {
   int count = 0;
   EXPECT_DEATH(VOK_ASSERT(count > 0, "count > 0"), "assertion failed: count > 0");
   VOK_ASSERT(count == 0, "never fires");
}

}  // namespace
