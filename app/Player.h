// Plays a scenario once, in a child process, so that a scenario on which
// the engine stops (a fatal assertion, an uncaught error) is refused naming
// the step, with none of its output printed.
//
// The child writes its output into an unnamed temporary file and the
// current step into a page it shares with the parent; the parent relays the
// child's standard error as it comes and copies the output to its own only
// once every step has played. One play, whatever happens: the fast-trace
// file, if any, is the one the user asked for, named by this process's id.
#pragma once

#include <stdexcept>

#include "app/Dump.h"
#include "app/Scenario.h"

namespace App {

enum class OutputFormat { text, json, none };

// The output could not be written (a full disk, a closed pipe), or the play
// ended for a reason that is not the scenario's (it was killed).
class OutputError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Throws ScenarioError naming the step at which the engine stopped, and
// OutputError when the output cannot be written to `outputFd`.
void play(const Scenario& scenario, OutputFormat format, int outputFd);

// Plays in this process, dumps to `writer`: what the child runs.
void playHere(const Scenario& scenario, DumpWriter& writer);

}  // namespace App
