// Time for the runtime, injectable so that every timing behaviour can be
// reproduced: the agent reads the monotonic clock, tests and scenario replays
// read a manual source they advance themselves.
#pragma once

#include <limits>

namespace Vok {

using Seconds = double;

// The firing time of an unarmed clock.
inline constexpr Seconds never = std::numeric_limits<Seconds>::infinity();

class TimeSource {
 public:
   virtual ~TimeSource() = default;
   virtual Seconds now() = 0;
};

class MonotonicTimeSource final : public TimeSource {
 public:
   Seconds now() override;
};

// Virtual time. Each reading may advance the time by a fixed step, which
// models the processing time that passes between two readings: code that
// works in slices bounded by elapsed time then ends its slices exactly as it
// would on a real machine, but reproducibly.
class ManualTimeSource final : public TimeSource {
 public:
   explicit ManualTimeSource(Seconds start = 0.0, Seconds stepPerReading = 0.0)
         : now_(start), step_(stepPerReading) {}

   Seconds now() override {
      Seconds reading = now_;
      now_ += step_;
      return reading;
   }
   // The current time, without counting as a reading.
   Seconds peek() const noexcept { return now_; }
   void advanceTo(Seconds time) noexcept {
      if (time > now_) {
         now_ = time;
      }
   }
   void advanceBy(Seconds delta) noexcept { advanceTo(now_ + delta); }
   Seconds stepPerReading() const noexcept { return step_; }
   void stepPerReadingIs(Seconds step) noexcept { step_ = step; }

 private:
   Seconds now_;
   Seconds step_;
};

}  // namespace Vok
