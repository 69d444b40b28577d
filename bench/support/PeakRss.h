// The process's resident memory high-water mark, resettable, so that a
// benchmark measures its own peak whatever ran before it in the process.
// getrusage's ru_maxrss can only grow: a second benchmark (or a repetition)
// would read the first one's peak. So the free memory malloc still holds
// from earlier work is given back first (else it is reused without the RSS
// growing), then writing "5" to /proc/self/clear_refs resets the kernel's
// high-water mark (VmHWM) to the current RSS.
#pragma once

#include <malloc.h>

#include <fstream>
#include <string>

namespace Bench {

// VmRSS or VmHWM of this process, in bytes; 0 if /proc is not readable.
inline long long procStatusBytes(const std::string& field) {
   std::ifstream status("/proc/self/status");
   for (std::string line; std::getline(status, line);) {
      if (line.rfind(field + ":", 0) == 0) {
         return std::stoll(line.substr(field.size() + 1)) * 1024;  // the kernel prints kB
      }
   }
   return 0;
}

// Resets the high-water mark; returns the resident bytes it starts from.
inline long long resetPeakRss() {
   ::malloc_trim(0);
   std::ofstream("/proc/self/clear_refs") << "5";
   return procStatusBytes("VmRSS");
}

inline long long peakRss() { return procStatusBytes("VmHWM"); }

}  // namespace Bench
