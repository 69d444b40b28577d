// Plays a scenario: a dry run in a child process first, so that a scenario
// on which the engine would stop (a fatal assertion, an uncaught error) is
// refused before anything is played; then the real run, collecting dumps.
#pragma once

#include <functional>

#include "app/Dump.h"
#include "app/Scenario.h"

namespace App {

// Throws ScenarioError naming the step at which the engine would stop.
void dryRun(const Scenario& scenario);

// Plays every step, handing each dump to `onDump`.
void play(const Scenario& scenario, const std::function<void(const Snapshot&)>& onDump);

}  // namespace App
