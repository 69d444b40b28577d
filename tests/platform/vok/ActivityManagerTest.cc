// Clocks under virtual time: firing order, one-shot semantics, re-arming from
// a callback, and time that advances as it is read.
#include "platform/vok/ActivityManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

struct Clocks : ::testing::Test {
   Vok::ManualTimeSource time;
   Vok::ActivityManager am{time};
   std::vector<std::string> fired;

   std::unique_ptr<Vok::Clock> clock(const std::string& name) {
      return std::make_unique<Vok::Clock>(am, [this, name] { fired.push_back(name); });
   }
};

TEST_F(Clocks, FireEarliestFirstAndEqualTimesInArmingOrder) {
   auto a = clock("a"), b = clock("b"), c = clock("c");
   c->nextTimeIs(0.5);
   b->nextTimeIs(0.2);
   a->nextTimeIs(0.5);
   am.advanceBy(time, 1.0);
   EXPECT_EQ(fired, (std::vector<std::string>{"b", "c", "a"}));
   EXPECT_DOUBLE_EQ(time.peek(), 1.0);
}

TEST_F(Clocks, AreDisarmedBeforeTheirCallbackRuns) {
   Vok::Seconds seen = 0;
   std::unique_ptr<Vok::Clock> self;
   self = std::make_unique<Vok::Clock>(am, [&] { seen = self->nextTime(); });
   self->nextTimeIs(0.1);
   am.advanceBy(time, 1.0);
   EXPECT_EQ(seen, Vok::never);
   EXPECT_EQ(am.armedCount(), 0u);
}

TEST_F(Clocks, CanReArmThemselvesAndSeeTheirFiringTime) {
   std::vector<Vok::Seconds> at;
   std::unique_ptr<Vok::Clock> tick;
   tick = std::make_unique<Vok::Clock>(am, [&] {
      at.push_back(am.now());
      if (at.size() < 3) {
         tick->nextTimeIs(am.now() + 0.04);
      }
   });
   tick->nextTimeIs(0.04);
   am.advanceBy(time, 1.0);
   ASSERT_EQ(at.size(), 3u);
   EXPECT_DOUBLE_EQ(at[0], 0.04);
   EXPECT_DOUBLE_EQ(at[1], 0.08);
   EXPECT_DOUBLE_EQ(at[2], 0.12);
}

TEST_F(Clocks, NotDueYetDoNotFire) {
   auto a = clock("a");
   a->nextTimeIs(0.5);
   am.advanceBy(time, 0.4);
   EXPECT_TRUE(fired.empty());
   EXPECT_FALSE(am.runOnce());
   am.advanceBy(time, 0.1);
   EXPECT_EQ(fired, std::vector<std::string>{"a"});
}

TEST_F(Clocks, DisarmedOrDestroyedClocksNeverFire) {
   auto a = clock("a"), b = clock("b");
   a->nextTimeIs(0.1);
   b->nextTimeIs(0.1);
   a->nextTimeIs(Vok::never);
   b.reset();
   EXPECT_TRUE(am.runUntilIdle(time));
   EXPECT_TRUE(fired.empty());
}

TEST_F(Clocks, MayBeDestroyedByTheirOwnCallback) {
   std::unique_ptr<Vok::Clock> once;
   once = std::make_unique<Vok::Clock>(am, [&] { once.reset(); });
   once->nextTimeIs(0.1);
   am.advanceBy(time, 1.0);
   EXPECT_EQ(once, nullptr);
}

TEST(ManualTime, AdvancesByItsStepOnEveryReading) {
   Vok::ManualTimeSource time(10.0, 0.001);
   EXPECT_DOUBLE_EQ(time.now(), 10.0);
   EXPECT_DOUBLE_EQ(time.now(), 10.001);
   EXPECT_DOUBLE_EQ(time.peek(), 10.002);
   time.advanceTo(5.0);  // never backwards
   EXPECT_DOUBLE_EQ(time.peek(), 10.002);
}

TEST(ManualTime, RunUntilIdleStopsAtTheLimit) {
   Vok::ManualTimeSource time;
   Vok::ActivityManager am(time);
   int runs = 0;
   std::unique_ptr<Vok::Clock> forever;
   forever = std::make_unique<Vok::Clock>(am, [&] {
      ++runs;
      forever->nextTimeIs(am.now() + 1.0);
   });
   forever->nextTimeIs(0.0);
   EXPECT_FALSE(am.runUntilIdle(time, 9.5));
   EXPECT_EQ(runs, 10);
}

}  // namespace
