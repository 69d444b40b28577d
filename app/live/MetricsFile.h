// The file the live agent keeps its metrics in, for node_exporter's
// textfile collector: rewritten every interval, atomically (written beside
// it, then renamed over it), so a scrape never reads half a file. A file
// that cannot be written is reported once per change of state (a new
// error, or written again after one), and the agent goes on.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace App {

class MetricsFile {
 public:
   // An empty path: no file, nothing is ever due.
   MetricsFile(std::string path, double interval);

   // Seconds until a rewrite is due (0 if one is); nothing without a file.
   // `now`: seconds on a monotonic clock.
   std::optional<double> secondsToNextWrite(double now) const;
   // Rewrites the file with `text()` if due.
   void writeIfDue(double now, const std::function<std::string()>& text);
   // Rewrites it now (the agent stops: its last state).
   void write(const std::string& text);

 private:
   std::string path_;
   double interval_;
   double next_ = 0;
   std::string error_;  // the last failure reported; empty once written
};

}  // namespace App
