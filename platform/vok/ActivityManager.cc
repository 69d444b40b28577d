#include "platform/vok/ActivityManager.h"

#include <algorithm>

namespace Vok {

namespace {
ActivityManager* current = nullptr;
}

ActivityManager* activityManager() noexcept { return current; }
void activityManagerIs(ActivityManager* manager) noexcept { current = manager; }

Seconds now() {
   if (current) {
      return current->now();
   }
   static MonotonicTimeSource monotonic;
   return monotonic.now();
}

Seconds ActivityManager::nextDue() const noexcept {
   return armed_.empty() ? never : std::get<0>(*armed_.begin());
}

void ActivityManager::arm(Clock& clock, Seconds time) {
   clock.nextTime_ = time;
   clock.sequence_ = nextSequence_++;
   armed_.emplace(time, clock.sequence_, &clock);
}

void ActivityManager::disarm(Clock& clock) {
   if (clock.nextTime_ != never) {
      armed_.erase(Slot{clock.nextTime_, clock.sequence_, &clock});
      clock.nextTime_ = never;
   }
}

void ActivityManager::fire(Clock& clock) {
   disarm(clock);
   // A copy, because the callback may destroy the clock that runs it.
   auto callback = clock.onTime_;
   try {
      callback();
   } catch (...) {
      turnEnded();  // what the turn wrote before it failed stays written
      throw;
   }
   turnEnded();
}

bool ActivityManager::runOnce() {
   if (armed_.empty()) {
      return false;
   }
   Clock* earliest = std::get<2>(*armed_.begin());
   if (earliest->nextTime_ > time_.now()) {
      return false;
   }
   fire(*earliest);
   return true;
}

std::size_t ActivityManager::runDue() {
   std::size_t ran = 0;
   while (runOnce()) {
      ++ran;
   }
   return ran;
}

void ActivityManager::advanceBy(ManualTimeSource& time, Seconds delta) {
   const Seconds target = time.peek() + delta;
   while (!armed_.empty() && nextDue() <= target) {
      time.advanceTo(nextDue());
      fire(*std::get<2>(*armed_.begin()));
   }
   time.advanceTo(target);
}

bool ActivityManager::runUntilIdle(ManualTimeSource& time, Seconds limit) {
   while (!armed_.empty()) {
      if (nextDue() > limit) {
         return false;
      }
      time.advanceTo(nextDue());
      fire(*std::get<2>(*armed_.begin()));
   }
   return true;
}

}  // namespace Vok
