// How the agent process was started. After a hitless restart the RIB keeps
// forwarding with what it had, so readiness must wait for the agent's
// start-up verification before it is reported.
#pragma once

#include <cstdint>

namespace Agent {

enum class StartupMode : std::uint8_t { unknown = 0, coldStart = 1, hitlessRestart = 2 };

}  // namespace Agent
