// Synchronous, re-entrant delivery: reactors that destroy themselves or their
// peers, reactors created mid-delivery, zombies and inactive reactors, and an
// entity whose last owner lets go during a delivery.
#include "platform/vok/Notifier.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

class GaugeNotifiee : public Vok::ReactorBase {
 public:
   virtual void onLevel() {}
};

class Gauge final : public Vok::Notifier<GaugeNotifiee> {
 public:
   static inline int live = 0;
   Gauge() { ++live; }
   ~Gauge() override { --live; }
   void levelIs(int level) {
      if (level == level_) {
         return;
      }
      level_ = level;
      notify([](GaugeNotifiee& n) { n.onLevel(); });
   }
   int level() const { return level_; }

 private:
   int level_ = 0;
};

class Probe final : public Vok::Reactor<Gauge> {
 public:
   Probe(Vok::Ptr<Gauge> gauge, std::string name, std::vector<std::string>& log)
         : Vok::Reactor<Gauge>(gauge), name_(std::move(name)), log_(log) {}
   void onLevel() override {
      log_.push_back(name_);
      if (action) {
         action();
      }
   }
   void onNotifier() override { log_.push_back(name_ + ":replaced"); }
   std::function<void()> action;

 private:
   std::string name_;
   std::vector<std::string>& log_;
};

struct Fixture : ::testing::Test {
   Vok::Ptr<Gauge> gauge = Vok::make<Gauge>();
   std::vector<std::string> log;
   std::unique_ptr<Probe> a = std::make_unique<Probe>(gauge, "a", log);
   std::unique_ptr<Probe> b = std::make_unique<Probe>(gauge, "b", log);
   std::unique_ptr<Probe> c = std::make_unique<Probe>(gauge, "c", log);
};

using Notification = Fixture;

TEST_F(Notification, IsDeliveredInRegistrationOrderOnlyOnChange) {
   gauge->levelIs(1);
   gauge->levelIs(1);
   EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(Notification, AReactorDestroyingItselfDoesNotDisturbTheOthers) {
   b->action = [&] { b.reset(); };
   gauge->levelIs(1);
   gauge->levelIs(2);
   EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "c", "a", "c"}));
   EXPECT_EQ(gauge->reactorCount(), 2u);
}

TEST_F(Notification, AReactorDestroyingALaterPeerSkipsThatPeer) {
   a->action = [&] { c.reset(); };
   gauge->levelIs(1);
   EXPECT_EQ(log, (std::vector<std::string>{"a", "b"}));
}

TEST_F(Notification, AReactorDestroyingAnEarlierPeerCausesNoDuplicate) {
   c->action = [&] { a.reset(); };
   gauge->levelIs(1);
   gauge->levelIs(2);
   EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "c", "b", "c"}));
}

TEST_F(Notification, AReactorCreatedDuringDeliveryHearsOnlyLaterChanges) {
   std::unique_ptr<Probe> late;
   a->action = [&] {
      if (!late) {
         late = std::make_unique<Probe>(gauge, "late", log);
      }
   };
   gauge->levelIs(1);
   EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "c"}));
   log.clear();
   gauge->levelIs(2);
   EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "c", "late"}));
}

TEST_F(Notification, NestedChangesAreDeliveredInMutationOrder) {
   a->action = [&] {
      if (gauge->level() == 1) {
         gauge->levelIs(2);
      }
   };
   gauge->levelIs(1);
   // The nested change is delivered in full inside a's callback, before the
   // outer delivery resumes with b and c.
   EXPECT_EQ(log, (std::vector<std::string>{"a", "a", "b", "c", "b", "c"}));
}

TEST_F(Notification, ZombieAndInactiveReactorsAreSkipped) {
   a->isZombieIs(true);
   b->hasNotificationActiveIs(false);
   gauge->levelIs(1);
   EXPECT_EQ(log, (std::vector<std::string>{"c"}));
}

TEST_F(Notification, TheEntityOutlivesADeliveryThatDropsItsLastOwner) {
   int liveBefore = Gauge::live;
   a->action = [&] {
      gauge = nullptr;   // the fixture's reference
      b.reset();         // each reactor holds one too
      c.reset();
   };
   Gauge* raw = gauge.get();
   raw->levelIs(1);
   EXPECT_EQ(Gauge::live, liveBefore);  // a still holds it
   a.reset();
   EXPECT_EQ(Gauge::live, liveBefore - 1);
}

TEST_F(Notification, AThrowingReactorEndsTheDeliveryAndLeavesTheListUsable) {
   a->action = [&] {
      b.reset();
      throw std::runtime_error("refused");
   };
   EXPECT_THROW(gauge->levelIs(1), std::runtime_error);
   a->action = nullptr;
   log.clear();
   gauge->levelIs(2);
   EXPECT_EQ(log, (std::vector<std::string>{"a", "c"}));
   EXPECT_EQ(gauge->reactorCount(), 2u);
}

TEST_F(Notification, RetargetingAReactorAnnouncesTheNewEntity) {
   auto other = Vok::make<Gauge>();
   a->notifierIs(other);
   EXPECT_EQ(log, (std::vector<std::string>{"a:replaced"}));
   log.clear();
   gauge->levelIs(1);
   other->levelIs(1);
   EXPECT_EQ(log, (std::vector<std::string>{"b", "c", "a"}));
   a->notifierIs(nullptr);
   EXPECT_EQ(other->reactorCount(), 0u);
}

TEST(ValidPtr, NullRaisesTheRangeError) {
   Vok::Ptr<Gauge> none;
   try {
      Vok::ValidPtr<Gauge> p(none);
      FAIL() << "no error";
   } catch (const std::range_error& e) {
      EXPECT_STREQ(e.what(), "null ValidPtr");
   }
}

TEST(Entity, ReferencesCountEveryHolder) {
   auto gauge = Vok::make<Gauge>();
   EXPECT_EQ(gauge->references(), 1u);
   {
      Vok::Ptr<Gauge> second = gauge;
      Vok::ValidPtr<Gauge> third = gauge;
      EXPECT_EQ(gauge->references(), 3u);
   }
   EXPECT_EQ(gauge->references(), 1u);
}

}  // namespace
