// The calling thread's CPU time. On a VM, wall time also counts the time
// the host took the CPU away (pauses of several milliseconds here); CPU
// time tells a step's own work from those.
#pragma once

#include <time.h>

namespace Bench {

inline double threadCpuSeconds() {
   timespec now{};
   ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
   return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace Bench
