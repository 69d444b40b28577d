// How many seeds a randomized test runs: its CI default, or the count in
// CONNROUTE_SEEDS for a long run (CONNROUTE_SEEDS=10000).
#pragma once

#include <cstdlib>
#include <string>

namespace Testing {

inline unsigned seedCount(unsigned ciDefault) {
   const char* env = std::getenv("CONNROUTE_SEEDS");
   return env ? static_cast<unsigned>(std::stoul(env)) : ciDefault;
}

}  // namespace Testing
