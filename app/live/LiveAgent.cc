#include "app/live/LiveAgent.h"

#include <linux/capability.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "app/Host.h"
#include "app/Player.h"
#include "app/live/MetricsFile.h"
#include "app/live/HostSeams.h"
#include "app/live/NamespaceService.h"
#include "app/live/ServiceNotifier.h"
#include "app/live/VrfIds.h"
#include "platform/linux/Fd.h"

namespace App {

namespace {

namespace fs = std::filesystem;

using Linux::Fd;

// Tags of the descriptors in the epoll set that are not sockets (those
// carry their namespace's address, never this small).
constexpr std::uint64_t kSignalsTag = 1;
constexpr std::uint64_t kInotifyTag = 2;

void watch(int epoll, int fd, epoll_event event) {
   if (::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
      throw LiveError(std::string("cannot watch a descriptor: ") + std::strerror(errno));
   }
}

// The namespaces' sockets in the epoll set.
class EpollRegistry final : public FdRegistry {
 public:
   explicit EpollRegistry(int epoll) : epoll_(epoll) {}
   void add(int fd, void* tag) override {
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.ptr = tag;
      watch(epoll_, fd, event);
   }
   // A descriptor removed is about to be closed, which takes it out of the
   // set anyway: a failure here changes nothing.
   void remove(int fd) override { (void)::epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr); }

 private:
   int epoll_;
};

// Every named namespace is entered with setns, which takes CAP_SYS_ADMIN:
// without it the agent would serve the default namespace alone and report
// every other one as not served, so it refuses to start instead.
bool mayEnterNamespaces() {
   std::ifstream status("/proc/self/status");
   for (std::string line; std::getline(status, line);) {
      if (line.starts_with("CapEff:")) {
         const std::uint64_t effective = std::stoull(line.substr(7), nullptr, 16);
         return (effective >> CAP_SYS_ADMIN & 1) != 0;
      }
   }
   return false;
}

void checkBeforeStart(const LiveOptions& options) {
   std::error_code error;
   if (std::filesystem::exists(options.netnsDir, error) &&
       !std::filesystem::is_directory(options.netnsDir, error)) {
      throw LiveError("--netns-dir: " + options.netnsDir + " is not a directory");
   }
   if (!mayEnterNamespaces()) {
      throw LiveError("entering the host's network namespaces needs CAP_SYS_ADMIN: run it as root");
   }
}

class LiveLoop {
 public:
   explicit LiveLoop(const LiveOptions& options);
   int run();

 private:
   void publish(Action action) { host_->apply(Step{0, "live", std::move(action)}, noWriter_); }
   void tellServiceManager();
   void readSettingsWhenDue();
   std::string metricsText() const;
   int epollTimeout();
   void dumpOnce();
   bool handleEvents();

   LiveOptions options_;
   std::shared_ptr<Plim::RowDatabase> tables_;
   std::unique_ptr<VrfIds> vrfIds_;
   std::unique_ptr<Host> host_;
   NullDumpWriter noWriter_;
   Fd epoll_, signals_, inotify_;
   Vok::MonotonicTimeSource clock_;
   std::unique_ptr<NetnsDirectory> directory_;
   std::unique_ptr<SocketFactory> sockets_;
   std::unique_ptr<EpollRegistry> registry_;
   std::unique_ptr<NamespaceService> namespaces_;
   ServiceNotifier notifier_;
   MetricsFile metrics_;
   double nextSettingsRead_ = 0;  // monotonic seconds
   bool stopping_ = false;
};

LiveLoop::LiveLoop(const LiveOptions& options)
      : options_(options), metrics_(options.metricsFile, options.metricsInterval) {
   checkBeforeStart(options);
   bool restart = false;
   if (!options.tablesDir.empty()) {
      try {
         tables_ = openTables(options.tablesDir);
      } catch (const std::exception& e) {
         throw LiveError(std::string("--tables: ") + e.what());
      }
      restart = !tables_->tables().empty();  // an earlier run left its tables
   }
   vrfIds_ = std::make_unique<VrfIds>(options.vrfIdsFile, tables_);
   host_ = std::make_unique<Host>(Host::RealTime{}, tables_);

   sigset_t stopSignals;
   sigemptyset(&stopSignals);
   sigaddset(&stopSignals, SIGTERM);
   sigaddset(&stopSignals, SIGINT);
   ::sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
   signals_.fd = ::signalfd(-1, &stopSignals, SFD_CLOEXEC | SFD_NONBLOCK);
   epoll_.fd = ::epoll_create1(EPOLL_CLOEXEC);
   // `ip netns add` creates the directory on first use; so does the agent,
   // so that it can watch it from the start.
   std::error_code error;
   fs::create_directories(options.netnsDir, error);
   inotify_.fd = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
   if (signals_.fd < 0 || epoll_.fd < 0 || inotify_.fd < 0) {
      throw LiveError(std::string("cannot set up the event loop: ") + std::strerror(errno));
   }
   if (::inotify_add_watch(inotify_.fd, options.netnsDir.c_str(),
                           IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO) < 0) {
      if (errno != ENOENT) {
         throw LiveError(options.netnsDir + ": cannot watch the namespaces: " + std::strerror(errno));
      }
      // Without the right to make it (not root), there are no named
      // namespaces to serve: the default one still is.
      std::cerr << "connroute: " << options.netnsDir
                << " does not exist: serving the default namespace only\n";
   }
   for (auto [fd, tag] : {std::pair{signals_.fd, kSignalsTag}, std::pair{inotify_.fd, kInotifyTag}}) {
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.u64 = tag;
      watch(epoll_.fd, fd, event);
   }
   directory_ = netnsDirectoryAt(options.netnsDir);
   sockets_ = rtnlSocketFactory(options.receiveBuffer);
   registry_ = std::make_unique<EpollRegistry>(epoll_.fd);
   namespaces_ = std::make_unique<NamespaceService>(
         *host_, *vrfIds_, tables_,
         NamespaceService::Seams{*directory_, *sockets_, *registry_, clock_, std::cerr});
   publish(StartStep{restart ? Agent::StartupMode::hitlessRestart : Agent::StartupMode::coldStart});
   std::cerr << "connroute: live, " << (restart ? "hitless restart over " + options.tablesDir : "cold start")
             << '\n';
   namespaces_->rescan();
}

std::string LiveLoop::metricsText() const {
   Metrics metrics = host_->metrics();
   metrics.namespaces = namespaces_->counters();
   std::ostringstream text;
   writePrometheus(metrics, text);
   return text.str();
}

void LiveLoop::tellServiceManager() {
   const Host::Totals totals = host_->totals();
   const std::size_t ready = host_->readyVrfs().size();
   notifier_.statusIs("VRFs served " + std::to_string(totals.vrfs) + ", ready " + std::to_string(ready) +
                            ", routes " + std::to_string(totals.routes) + ", backlog " +
                            std::to_string(totals.backlog),
                      clock_.now());
   if (namespaces_->everythingReady()) {
      notifier_.ready();
   }
}

// The kernel announces no change of bc_forwarding, so every namespace's
// settings are read again this often: a change reaches the routes within
// about a second.
constexpr double kSettingsPeriod = 1.0;

void LiveLoop::readSettingsWhenDue() {
   const double now = clock_.now();
   if (now < nextSettingsRead_) {
      return;
   }
   namespaces_->refreshSettings();
   nextSettingsRead_ = now + kSettingsPeriod;
}

// Until the next clock, the next message to the service manager, the next
// read of the settings, or the next try of a namespace, whichever comes
// first.
int LiveLoop::epollTimeout() {
   const double now = clock_.now();
   std::optional<double> next = host_->secondsToNextClock();
   if (const auto message = notifier_.secondsToNextMessage(now)) {
      next = next ? std::min(*next, *message) : *message;
   }
   if (const auto metrics = metrics_.secondsToNextWrite(now)) {
      next = next ? std::min(*next, *metrics) : *metrics;
   }
   if (const auto retry = namespaces_->secondsToNextTry()) {
      next = next ? std::min(*next, *retry) : *retry;
   }
   const double settings = std::max(nextSettingsRead_ - now, 0.0);
   next = next ? std::min(*next, settings) : settings;
   return next ? static_cast<int>(std::ceil(std::min(*next, 3600.0) * 1e3)) : -1;
}

void LiveLoop::dumpOnce() {
   auto writer = options_.json ? jsonDumpWriter(std::cout) : textDumpWriter(std::cout);
   writer->scenarioBegin("live", "every VRF ready");
   host_->dump("ready", *writer);
   writer->scenarioEnd();
   std::cout.flush();
}

// Waits for the next events and hands them on; true if the netns directory
// changed.
bool LiveLoop::handleEvents() {
   epoll_event events[16];
   const int n = ::epoll_wait(epoll_.fd, events, 16, epollTimeout());
   if (n < 0 && errno != EINTR) {
      throw LiveError(std::string("epoll: ") + std::strerror(errno));
   }
   bool directoryChanged = false;
   for (int i = 0; i < n; ++i) {
      const epoll_event& event = events[i];
      if (event.data.u64 == kSignalsTag) {
         signalfd_siginfo info;
         while (::read(signals_.fd, &info, sizeof info) == sizeof info) {
            stopping_ = true;
         }
      } else if (event.data.u64 == kInotifyTag) {
         char buffer[4096];
         while (::read(inotify_.fd, buffer, sizeof buffer) > 0) {
         }
         directoryChanged = true;  // after the sockets: it may take a namespace away
      } else {
         namespaces_->onReadable(event.data.ptr);
      }
   }
   return directoryChanged;
}

int LiveLoop::run() {
   for (;;) {
      namespaces_->afterTurns();
      tellServiceManager();
      if (options_.once && namespaces_->everythingReady()) {
         dumpOnce();
         stopping_ = true;
      }
      if (stopping_) {
         notifier_.stopping();
         publish(StopStep{});
         metrics_.write(metricsText());
         std::cerr << "connroute: stopped\n";
         if (!std::cout) {
            throw OutputError(std::string("cannot write the output: ") + std::strerror(errno));
         }
         return 0;
      }
      const bool directoryChanged = handleEvents();
      const auto retry = namespaces_->secondsToNextTry();
      if (directoryChanged || (retry && *retry <= 0)) {
         namespaces_->rescan();
      }
      host_->runDueClocks();
      notifier_.tick(clock_.now());
      readSettingsWhenDue();
      metrics_.writeIfDue(clock_.now(), [this] { return metricsText(); });
   }
}

}  // namespace

int runLive(const LiveOptions& options) {
   LiveLoop loop(options);
   return loop.run();
}

}  // namespace App
