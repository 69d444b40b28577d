// `connroute live`: the engine as an agent of a Linux host. The default
// network namespace is VRF "default" (identifier 0) and every named
// namespace (a file of the netns directory, watched with inotify) is a VRF
// of the same name, served while it exists. Each namespace's links and
// addresses come from its own rtnetlink socket (NamespaceFeed); clocks run
// on the monotonic clock; SIGTERM and SIGINT stop the agent as a `stop`
// step would, tables flushed.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace App {

struct LiveOptions {
   std::string tablesDir;           // empty: tables in memory
   std::string vrfIdsFile;          // empty: every identifier assigned
   std::string netnsDir = "/run/netns";
   bool once = false;               // dump once everything is ready, then stop
   bool json = false;               // the --once dump as JSON
   int receiveBuffer = 64 << 20;    // per namespace socket, bytes
   std::string metricsFile;         // empty: none
   double metricsInterval = 5;      // seconds between rewrites of it
};

// A bad option, file or directory: exit status 2.
class LiveError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Runs until a stop signal (or, with `once`, until every VRF is ready and
// dumped); returns the exit status.
int runLive(const LiveOptions& options);

}  // namespace App
