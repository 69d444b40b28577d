// Plays a scenario once, in a child process, so that a scenario on which
// the engine stops (a fatal assertion, an uncaught error) is refused naming
// the step, with none of its output printed.
//
// The child writes the current step into a page it shares with the parent,
// and its output straight into the parent's when that is a regular file
// written at its end and not shared with standard error (cut back to where
// it ended if the play fails; only a kill of the program itself leaves part
// of a dump there), or else into an unnamed temporary file, which the parent
// copies to its own only once every step has played. The parent relays the
// child's standard error as it comes. One play, whatever happens: the fast-trace
// file, if any, is the one the user asked for, named by this process's id.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "app/Dump.h"
#include "app/Scenario.h"
#include "platform/plim/RowDatabase.h"

namespace App {

enum class OutputFormat { text, json, none };

// The output could not be written (a full disk, a closed pipe), or the play
// ended for a reason that is not the scenario's (it was killed).
class OutputError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Throws ScenarioError naming the step at which the engine stopped, and
// OutputError when the output cannot be written to `outputFd`. With a
// `tablesDir`, the RIB's tables are kept in that table directory (created if
// absent; an earlier run's rows are the new run's stale rows), and a
// directory that cannot be used is a ScenarioError before anything plays.
void play(const Scenario& scenario, OutputFormat format, int outputFd,
          const std::string& tablesDir = {});

// Opens a table directory for the agent to write.
std::shared_ptr<Plim::RowDatabase> openTables(const std::string& dir);

// Plays in this process, dumps to `writer`: what the child runs.
void playHere(const Scenario& scenario, DumpWriter& writer);

}  // namespace App
