#include "app/Player.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "app/Host.h"
#include "platform/trace/Trace.h"

namespace App {

namespace {

std::string readAll(int fd) {
   std::string out;
   char buffer[4096];
   ssize_t n;
   while ((n = ::read(fd, buffer, sizeof(buffer))) > 0) {
      out.append(buffer, static_cast<std::size_t>(n));
   }
   return out;
}

void writeAll(int fd, const std::string& text) {
   std::size_t done = 0;
   while (done < text.size()) {
      ssize_t n = ::write(fd, text.data() + done, text.size() - done);
      if (n <= 0) {
         return;
      }
      done += static_cast<std::size_t>(n);
   }
}

// The last line the child wrote that names its current step.
std::size_t lastStep(const std::string& progress) {
   std::size_t step = 0;
   std::size_t pos = 0;
   while ((pos = progress.find("step ", pos)) != std::string::npos) {
      step = std::stoul(progress.substr(pos + 5));
      pos += 5;
   }
   return step;
}

[[noreturn]] void runChild(const Scenario& scenario, int progressFd, int errorFd) {
   ::dup2(errorFd, STDERR_FILENO);
   int devNull = ::open("/dev/null", O_WRONLY);
   ::dup2(devNull, STDOUT_FILENO);
   Vok::traceSinkIs([](const Vok::TraceLine&) {});
   try {
      Host host(scenario.stepPerReading);
      for (const Step& step : scenario.steps) {
         writeAll(progressFd, "step " + std::to_string(step.number) + "\n");
         host.apply(step);
      }
   } catch (const std::exception& e) {
      writeAll(errorFd, std::string("uncaught error: ") + e.what() + "\n");
      ::_exit(3);
   }
   ::_exit(0);
}

}  // namespace

void dryRun(const Scenario& scenario) {
   int progress[2], errors[2];
   if (::pipe(progress) != 0 || ::pipe(errors) != 0) {
      throw ScenarioError(std::string("cannot check the scenario: pipe: ") + std::strerror(errno));
   }
   std::fflush(nullptr);
   const pid_t child = ::fork();
   if (child < 0) {
      throw ScenarioError(std::string("cannot check the scenario: fork: ") + std::strerror(errno));
   }
   if (child == 0) {
      ::close(progress[0]);
      ::close(errors[0]);
      runChild(scenario, progress[1], errors[1]);
   }
   ::close(progress[1]);
   ::close(errors[1]);
   // The child writes little; read both pipes to their end before waiting.
   const std::string steps = readAll(progress[0]);
   const std::string stderrText = readAll(errors[0]);
   ::close(progress[0]);
   ::close(errors[0]);
   int status = 0;
   ::waitpid(child, &status, 0);
   if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
      return;
   }
   const std::size_t number = lastStep(steps);
   std::string kind = number > 0 ? scenario.steps[number - 1].kind : "?";
   std::string reason = stderrText;
   if (auto cut = reason.find('\n'); cut != std::string::npos) {
      reason.resize(cut);
   }
   if (reason.empty()) {
      reason = WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status))
                                   : "exit status " + std::to_string(WEXITSTATUS(status));
   }
   throw ScenarioError(scenario.name + ": step " + std::to_string(number) + " (" + kind +
                       "): the engine would stop here: " + reason +
                       " (inputs the engine does not accept: docs/hazards.md)");
}

void play(const Scenario& scenario, const std::function<void(const Snapshot&)>& onDump) {
   Host host(scenario.stepPerReading);
   for (const Step& step : scenario.steps) {
      if (auto snapshot = host.apply(step)) {
         onDump(*snapshot);
      }
   }
}

}  // namespace App
