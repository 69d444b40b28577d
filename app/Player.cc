#include "app/Player.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <utility>

#include "app/Host.h"
#include "platform/linux/Fd.h"
#include "platform/trace/Zipmark.h"

namespace App {

namespace {

// Where the child stands, read by the parent after the child has ended.
struct Progress {
   std::atomic<std::size_t> step{0};  // 0: before the first step
   std::atomic<bool> finished{false};
};

constexpr int kChildStopped = 3;     // an uncaught error ended the play
constexpr int kChildOutputFailed = 4;

std::string errnoText(const std::string& what) { return what + ": " + std::strerror(errno); }

int unnamedTemporaryFile() {
   const char* dir = std::getenv("TMPDIR");
   if (!dir || !*dir) {
      dir = "/tmp";
   }
   int fd = ::open(dir, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
   if (fd >= 0) {
      return fd;
   }
   std::string name = std::string(dir) + "/connroute-XXXXXX";  // file systems without O_TMPFILE
   fd = ::mkstemp(name.data());
   if (fd < 0) {
      throw OutputError(errnoText("cannot create a temporary file in " + std::string(dir)));
   }
   ::unlink(name.c_str());
   return fd;
}

void writeAll(int fd, const char* data, std::size_t size) {
   while (size > 0) {
      const ssize_t n = ::write(fd, data, size);
      if (n < 0 && errno == EINTR) {
         continue;
      }
      if (n <= 0) {
         throw OutputError(errnoText("cannot write the output"));
      }
      data += n;
      size -= static_cast<std::size_t>(n);
   }
}

void copyFile(int from, int to) {
   if (::lseek(from, 0, SEEK_SET) != 0) {
      throw OutputError(errnoText("cannot read back the output"));
   }
   static char buffer[1 << 16];
   for (;;) {
      const ssize_t n = ::read(from, buffer, sizeof(buffer));
      if (n < 0 && errno == EINTR) {
         continue;
      }
      if (n < 0) {
         throw OutputError(errnoText("cannot read back the output"));
      }
      if (n == 0) {
         return;
      }
      writeAll(to, buffer, static_cast<std::size_t>(n));
   }
}

// Where `fd` ends, when output can go there directly and be cut off again
// if the play fails: a regular file written at its end, which no other
// writer appends to and standard error does not share (the relayed trace
// lines would land in the middle of the dump, and be cut off with it).
std::optional<off_t> endOfRegularFile(int fd) {
   struct stat status{};
   if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
      return std::nullopt;
   }
   const int flags = ::fcntl(fd, F_GETFL);
   if (flags < 0 || (flags & O_APPEND) != 0) {
      return std::nullopt;
   }
   struct stat errors{};
   if (::fstat(STDERR_FILENO, &errors) == 0 && errors.st_dev == status.st_dev &&
       errors.st_ino == status.st_ino) {
      return std::nullopt;
   }
   const off_t offset = ::lseek(fd, 0, SEEK_CUR);
   return offset == status.st_size ? std::optional<off_t>(offset) : std::nullopt;
}

[[noreturn]] void runChild(const Scenario& scenario, OutputFormat format, int outputFd,
                           int errorFd, Progress& progress, pid_t parent,
                           const std::string& tablesDir) {
   ::dup2(errorFd, STDERR_FILENO);
   ::close(errorFd);
   ::dup2(outputFd, STDOUT_FILENO);
   ::close(outputFd);
   // Nothing outlives the program the user started, also when it is killed.
   ::prctl(PR_SET_PDEATHSIG, SIGKILL);
   if (::getppid() != parent) {
      ::_exit(kChildStopped);
   }
   // The fast-trace file is named by that program's process id too.
   const char* zmFile = std::getenv("ZMFILE");
   std::string name = zmFile && *zmFile ? zmFile : "ConnectedRoute-%d.zm";
   if (auto at = name.find("%d"); at != std::string::npos) {
      name.replace(at, 2, std::to_string(parent));
   }
   ::setenv("ZMFILE", name.c_str(), 1);
   std::ios::sync_with_stdio(false);
   // A dump is millions of short lines: large writes keep the kernel's
   // per-write cost off each of them.
   static char outputBuffer[1 << 20];
   std::cout.rdbuf()->pubsetbuf(outputBuffer, sizeof(outputBuffer));
   try {
      // Opened here, never across the fork: LMDB's environments do not
      // survive one. The parent checked the directory already.
      const auto tables = tablesDir.empty() ? nullptr : openTables(tablesDir);
      if (format == OutputFormat::none) {
         NullDumpWriter writer;
         Host host(scenario.stepPerReading, tables);
         for (const Step& step : scenario.steps) {
            progress.step = step.number;
            if (!std::holds_alternative<DumpStep>(step.action)) {
               host.apply(step, writer);
            }
         }
         progress.finished = true;
         Zipmark::flush();
         std::cerr.flush();
         ::_exit(0);  // the agent is not torn down: the process ends with it
      }
      auto writer = format == OutputFormat::json ? jsonDumpWriter(std::cout) : textDumpWriter(std::cout);
      writer->scenarioBegin(scenario.name, scenario.description);
      Host host(scenario.stepPerReading, tables);
      for (const Step& step : scenario.steps) {
         progress.step = step.number;
         host.apply(step, *writer);
         if (!std::cout) {
            break;
         }
      }
      progress.finished = true;
      writer->scenarioEnd();
      std::cout.flush();
      Zipmark::flush();
      if (!std::cout) {
         std::cerr << "output error: cannot write the output\n";
         ::_exit(kChildOutputFailed);
      }
      ::_exit(0);
   } catch (const std::exception& e) {
      std::cerr << "uncaught error: " << e.what() << "\n";
      std::cerr.flush();
      Zipmark::flush();
      ::_exit(kChildStopped);
   }
}

// Copies the child's standard error through, keeping the line that says
// why it stopped (an assertion or an uncaught error) instead of relaying it.
class ErrorRelay {
 public:
   void feed(const char* data, std::size_t size) {
      pending_.append(data, size);
      std::size_t start = 0;
      for (std::size_t end; (end = pending_.find('\n', start)) != std::string::npos; start = end + 1) {
         line(std::string_view(pending_).substr(start, end - start + 1));
      }
      pending_.erase(0, start);
   }
   void finish() {
      if (!pending_.empty()) {
         line(pending_);
         pending_.clear();
      }
   }
   const std::string& reason() const noexcept { return reason_; }

 private:
   void line(std::string_view text) {
      for (std::string_view prefix : {"assertion failed: ", "uncaught error: ", "output error: "}) {
         if (text.starts_with(prefix)) {
            reason_ = std::string(text.substr(text.starts_with("assertion") ? 0 : prefix.size()));
            while (!reason_.empty() && reason_.back() == '\n') {
               reason_.pop_back();
            }
            return;
         }
      }
      std::cerr << text;
   }
   std::string pending_;
   std::string reason_;
};

}  // namespace

void playHere(const Scenario& scenario, DumpWriter& writer) {
   writer.scenarioBegin(scenario.name, scenario.description);
   Host host(scenario.stepPerReading);
   for (const Step& step : scenario.steps) {
      host.apply(step, writer);
   }
   writer.scenarioEnd();
}

std::shared_ptr<Plim::RowDatabase> openTables(const std::string& dir) {
   return Plim::RowDatabase::open(dir, Plim::Access::write, Kordb::persistentLayout());
}

namespace {

// Fails the play early, in the parent, when the table directory cannot be
// opened: the child would only find out after the fork.
void checkTables(const std::string& tablesDir) {
   if (tablesDir.empty()) {
      return;
   }
   try {
      openTables(tablesDir);  // closed again at once: only the child writes
   } catch (const Plim::DatabaseError& e) {
      throw ScenarioError(std::string("--tables: ") + e.what());
   } catch (const Belm::CorruptionDetectedException& e) {
      throw ScenarioError("--tables: " + tablesDir + ": " + e.what());
   }
}

// Where the child writes. A regular file takes the output as it is
// written (from where it ended); anything else (a pipe, a terminal) gets it
// from an unnamed temporary file once the play succeeded, so that a failed
// play prints nothing. Only a kill of this process itself can leave a
// partial dump in a file.
struct PlayOutput {
   Linux::Fd fd;
   std::optional<off_t> directStart;
};

PlayOutput playOutput(OutputFormat format, int outputFd) {
   std::cout.flush();
   PlayOutput output;
   output.directStart = format == OutputFormat::none ? std::nullopt : endOfRegularFile(outputFd);
   output.fd.fd = output.directStart ? ::fcntl(outputFd, F_DUPFD_CLOEXEC, 0) : unnamedTemporaryFile();
   if (output.fd.fd < 0) {
      throw OutputError(errnoText("cannot play the scenario: dup"));
   }
   return output;
}

// The page the child records its progress in, shared with the parent.
class SharedProgress {
 public:
   SharedProgress() {
      page_ = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
      if (page_ == MAP_FAILED) {
         throw OutputError(errnoText("cannot play the scenario: mmap"));
      }
      progress_ = new (page_) Progress;
   }
   ~SharedProgress() { ::munmap(page_, sizeof(Progress)); }
   SharedProgress(const SharedProgress&) = delete;
   SharedProgress& operator=(const SharedProgress&) = delete;
   Progress& operator*() const noexcept { return *progress_; }

 private:
   void* page_ = nullptr;
   Progress* progress_ = nullptr;
};

// Relays the child's standard error until it closes, keeping why it stopped.
ErrorRelay relayErrors(const Linux::Fd& errors) {
   ErrorRelay relay;
   char buffer[4096];
   for (ssize_t n; (n = ::read(errors.fd, buffer, sizeof(buffer))) != 0;) {
      if (n < 0) {
         if (errno == EINTR) {
            continue;
         }
         break;
      }
      relay.feed(buffer, static_cast<std::size_t>(n));
   }
   relay.finish();
   return relay;
}

int waitFor(pid_t child) {
   int status = 0;
   while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
   }
   return status;
}

// A failed play leaves nothing of its output behind.
void discard(const PlayOutput& output, int outputFd) {
   if (output.directStart) {  // cut back to where the file ended
      const off_t start = output.directStart.value();
      if (::ftruncate(outputFd, start) == 0) {
         ::lseek(outputFd, start, SEEK_SET);
      }
   }
}

// Why a play whose child did not succeed failed.
[[noreturn]] void failed(const Scenario& scenario, int status, const std::string& reasonGiven,
                         const Progress& progress) {
   if (WIFEXITED(status) && WEXITSTATUS(status) == kChildOutputFailed) {
      throw OutputError(reasonGiven);
   }
   const std::size_t number = progress.step;
   // The engine stops by a fatal assertion (an abort) or an uncaught error;
   // any other end (the OOM killer, a signal from outside) is not the
   // scenario's fault.
   const bool engineStopped = (WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) ||
                              (WIFEXITED(status) && WEXITSTATUS(status) == kChildStopped);
   if (!engineStopped) {
      throw OutputError("the play ended abnormally: " +
                        (WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status))
                                             : "exit status " + std::to_string(WEXITSTATUS(status))) +
                        (number > 0 ? " at step " + std::to_string(number) : std::string()));
   }
   std::string reason = reasonGiven;
   if (reason.empty()) {
      reason = WIFSIGNALED(status) ? "abort" : "exit status " + std::to_string(WEXITSTATUS(status));
   }
   const std::string where =
         progress.finished || number == 0
               ? (progress.finished ? "after the last step" : "before the first step")
               : "step " + std::to_string(number) + " (" + scenario.steps[number - 1].kind + ")";
   throw ScenarioError(scenario.name + ": " + where + ": the engine stopped here: " + reason +
                       " (inputs the engine does not accept: docs/hazards.md)");
}

}  // namespace

void play(const Scenario& scenario, OutputFormat format, int outputFd, const std::string& tablesDir) {
   checkTables(tablesDir);
   const PlayOutput output = playOutput(format, outputFd);
   int errorPipe[2];
   if (::pipe2(errorPipe, O_CLOEXEC) != 0) {
      throw OutputError(errnoText("cannot play the scenario: pipe"));
   }
   Linux::Fd errors(errorPipe[0]);
   Linux::Fd childErrors(errorPipe[1]);
   const SharedProgress progress;
   // Pages the parent freed (the scenario document) would otherwise be
   // copied into the child the first time it reuses them.
   ::malloc_trim(0);
   std::cerr.flush();
   const pid_t parent = ::getpid();
   const pid_t child = ::fork();
   if (child < 0) {
      throw OutputError(errnoText("cannot play the scenario: fork"));
   }
   if (child == 0) {
      ::close(errors.fd);
      runChild(scenario, format, ::dup(output.fd.fd), childErrors.fd, *progress, parent, tablesDir);
   }
   childErrors.close();  // the relay ends when the child's copy goes
   const ErrorRelay relay = relayErrors(errors);
   const int status = waitFor(child);
   if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
      if (!output.directStart) {
         copyFile(output.fd.fd, outputFd);
      }
      return;
   }
   discard(output, outputFd);
   failed(scenario, status, relay.reason(), *progress);
}

}  // namespace App
