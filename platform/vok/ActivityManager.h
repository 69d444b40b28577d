// Clocks and the activity manager that runs them.
//
// A Clock is a one-shot timer with a settable next firing time (never means
// unarmed). The activity manager runs due clocks one at a time on the calling
// thread, earliest first and, among equal times, in the order they were
// armed. A clock is disarmed just before its callback runs, so the callback
// sees `never` unless it re-arms the clock itself.
//
//   Vok::ManualTimeSource time;
//   Vok::ActivityManager am(time);
//   Vok::Clock clock(am, [&] { ... });
//   clock.nextTimeIs(am.now() + 0.04);
//   am.advanceBy(time, 0.1);   // fires the clock at t = 0.04
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <tuple>

#include "platform/vok/Time.h"

namespace Vok {

class Clock;

// The runtime's current activity manager, whose clock machines use when they
// are not handed one and whose time is "now" for the whole process.
class ActivityManager;
ActivityManager* activityManager() noexcept;
void activityManagerIs(ActivityManager* manager) noexcept;
// The current time of the current activity manager (monotonic if none).
Seconds now();

class ActivityManager {
 public:
   explicit ActivityManager(TimeSource& time) : time_(time) {}
   ActivityManager(const ActivityManager&) = delete;
   ActivityManager& operator=(const ActivityManager&) = delete;

   Seconds now() { return time_.now(); }
   TimeSource& timeSource() noexcept { return time_; }

   // Earliest firing time of any armed clock, or never.
   Seconds nextDue() const noexcept;
   std::size_t armedCount() const noexcept { return armed_.size(); }

   // Runs the earliest clock if it is due at `now()`; false if none was due.
   bool runOnce();
   // Runs clocks while any is due; returns how many ran.
   std::size_t runDue();

   // Virtual time: runs every clock due up to peek() + delta in order, moving
   // the manual time to each firing time first, and ends at the later of
   // that target and the time the callbacks consumed.
   void advanceBy(ManualTimeSource& time, Seconds delta);
   // Virtual time: runs clocks until none is armed or the next one lies
   // beyond `limit`; returns false when it stopped at the limit.
   bool runUntilIdle(ManualTimeSource& time, Seconds limit = never);

   // Called after every clock callback, which ends one turn of the event
   // loop (e.g. to publish what the turn wrote, all at once). Also called by
   // whoever delivers a notification from outside, through turnEnded().
   void turnEndHandlerIs(std::function<void()> handler) { turnEnd_ = std::move(handler); }
   void turnEnded() {
      if (turnEnd_) {
         turnEnd_();
      }
   }

 private:
   friend class Clock;
   using Slot = std::tuple<Seconds, std::uint64_t, Clock*>;

   void arm(Clock& clock, Seconds time);
   void disarm(Clock& clock);
   void fire(Clock& clock);

   TimeSource& time_;
   std::set<Slot> armed_;
   std::uint64_t nextSequence_ = 0;
   std::function<void()> turnEnd_;
};

class Clock {
 public:
   Clock(ActivityManager& manager, std::function<void()> onTime)
         : manager_(manager), onTime_(std::move(onTime)) {}
   Clock(const Clock&) = delete;
   Clock& operator=(const Clock&) = delete;
   ~Clock() { manager_.disarm(*this); }

   Seconds nextTime() const noexcept { return nextTime_; }
   void nextTimeIs(Seconds time) {
      if (time == nextTime_) {
         return;
      }
      manager_.disarm(*this);
      if (time != never) {
         manager_.arm(*this, time);
      }
   }
   ActivityManager& manager() const noexcept { return manager_; }

 private:
   friend class ActivityManager;

   ActivityManager& manager_;
   std::function<void()> onTime_;
   Seconds nextTime_ = never;
   std::uint64_t sequence_ = 0;
};

}  // namespace Vok
