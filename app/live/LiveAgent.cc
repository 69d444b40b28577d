#include "app/live/LiveAgent.h"

#include <linux/capability.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "app/Host.h"
#include "app/Player.h"
#include "app/read/PublishedRows.h"
#include "app/TablePublisher.h"
#include "app/TableRows.h"
#include "app/live/MetricsFile.h"
#include "app/live/NamespaceFeed.h"
#include "app/live/ServiceNotifier.h"
#include "app/live/VrfIds.h"
#include "platform/kordb/EntityManager.h"
#include "platform/linux/Fd.h"

namespace App {

namespace {

namespace fs = std::filesystem;

using Linux::Fd;

// Tags of the descriptors in the epoll set that are not sockets (those
// carry their Served's address, never this small).
constexpr std::uint64_t kSignalsTag = 1;
constexpr std::uint64_t kInotifyTag = 2;

// A namespace served as a VRF: its feed, the socket that feeds it, and the
// namespace file's identity (a namespace deleted and made again under the
// same name between two looks is another namespace).
struct Served {
   std::string netns;  // "" for the agent's own
   std::unique_ptr<NamespaceFeed> feed;
   std::unique_ptr<Linux::RtnlSocket> socket;
   std::pair<dev_t, ino_t> identity{};
   std::uint64_t malformedReported = 0;  // of the socket's malformed messages
};

// How metrics name a namespace: the agent's own is "default", a name no
// named namespace may have (it is refused as a VRF's).
std::string counterName(const std::string& netns) { return netns.empty() ? "default" : netns; }

NamespaceCounters countersOf(const Served& served) {
   const auto& counters = served.socket->counters();
   return NamespaceCounters{counterName(served.netns), counters.messages, counters.eventsLost,
                            counters.dumps > 0 ? counters.dumps - 1 : 0};
}

std::pair<dev_t, ino_t> identityOf(const fs::path& file) {
   struct stat st {};
   return ::stat(file.c_str(), &st) == 0 ? std::pair{st.st_dev, st.st_ino} : std::pair<dev_t, ino_t>{};
}

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
   void serve(const std::string& netns);
   void unserve(const std::string& netns);
   void rescanNamespaces();
   void pump(Served& served);
   void afterTurns();
   bool everythingReady() const;
   void clearUnservedTables();
   void tellServiceManager();
   void readSettingsWhenDue();
   void publishCounters(const Served& served);
   std::string metricsText() const;
   int epollTimeout() const;

   LiveOptions options_;
   std::shared_ptr<Plim::RowDatabase> tables_;
   std::unique_ptr<VrfIds> vrfIds_;
   std::unique_ptr<Host> host_;
   NullDumpWriter noWriter_;
   Fd epoll_, signals_, inotify_;
   std::map<std::string, Served> served_;  // by namespace name, "" the default one
   std::map<std::string, int> retries_;     // namespaces not yet enterable
   std::set<std::string> unservable_;       // files that are no namespace
   std::set<std::string> badNames_;         // names no VRF can have: reported once
   std::set<std::string> announcedReady_;
   ServiceNotifier notifier_;
   MetricsFile metrics_;
   double nextSettingsRead_ = 0;  // monotonic seconds
   bool verified_ = false;
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
      ::epoll_ctl(epoll_.fd, EPOLL_CTL_ADD, fd, &event);
   }
   publish(StartStep{restart ? Agent::StartupMode::hitlessRestart : Agent::StartupMode::coldStart});
   std::cerr << "connroute: live, " << (restart ? "hitless restart over " + options.tablesDir : "cold start")
             << '\n';
   serve("");
   rescanNamespaces();
}

void LiveLoop::serve(const std::string& netns) {
   if (served_.contains(netns) || unservable_.contains(netns) || badNames_.contains(netns)) {
      return;
   }
   const std::string name = netns.empty() ? "default" : netns;
   std::optional<L3::VrfName> vrf;
   try {
      if (!netns.empty() && name == "default") {
         throw std::invalid_argument("'default' is the host's own namespace's VRF");
      }
      vrf = L3::VrfName(name);
      if (!netns.empty()) {
         (void)Ovel::NamespaceName(netns);
      }
   } catch (const std::exception& e) {
      std::cerr << "connroute: namespace '" << netns << "' is not served: " << e.what() << '\n';
      badNames_.insert(netns);
      return;
   }
   const Vrf::VrfIdMap::VrfId id(vrfIds_->idFor(name));
   Served served;
   served.netns = netns;
   served.feed = std::make_unique<NamespaceFeed>(netns, *vrf, id, [this](Action a) { publish(std::move(a)); });
   try {
      served.socket = std::make_unique<Linux::RtnlSocket>(
            netns.empty() ? std::string() : (fs::path(options_.netnsDir) / netns).string(), *served.feed,
            options_.receiveBuffer);
   } catch (const Linux::NetlinkError& e) {
      // Just created by `ip netns add`: the file may not be the namespace's
      // mount yet. Tried again shortly, for a second; then it is no
      // namespace (a file left behind), until the directory changes again.
      if (++retries_[netns] == 50) {
         std::cerr << "connroute: namespace '" << netns << "' is not served: " << e.what() << '\n';
         retries_.erase(netns);
         unservable_.insert(netns);
      }
      return;
   }
   retries_.erase(netns);
   if (!netns.empty()) {
      served.identity = identityOf(fs::path(options_.netnsDir) / netns);
   }
   publish(VrfIdMapStep{VrfIdMapStep::Op::set, {{*vrf, id}}, {}});
   if (!netns.empty()) {
      publish(VrfLocalStep{*vrf, false, Ip::VrfState::active, Ovel::NamespaceName(netns)});
   }
   publish(CollectionStep{4, *vrf, true});
   publish(CollectionStep{6, *vrf, true});
   publish(RibAwaitsStep{{*vrf}, {}});
   auto [it, inserted] = served_.emplace(netns, std::move(served));
   epoll_event event{};
   event.events = EPOLLIN;
   event.data.ptr = &it->second;  // map nodes stay where they are
   for (int fd : {it->second.socket->eventFd(), it->second.socket->dumpFd()}) {
      ::epoll_ctl(epoll_.fd, EPOLL_CTL_ADD, fd, &event);
   }
   it->second.feed->dumpStarted();
   it->second.socket->dump();
   std::cerr << "connroute: serving VRF " << name << " (id " << id.value() << ")\n";
}

void LiveLoop::unserve(const std::string& netns) {
   retries_.erase(netns);
   auto it = served_.find(netns);
   if (it == served_.end()) {
      return;
   }
   for (int fd : {it->second.socket->eventFd(), it->second.socket->dumpFd()}) {
      ::epoll_ctl(epoll_.fd, EPOLL_CTL_DEL, fd, nullptr);
   }
   it->second.feed->withdrawAll();
   if (tables_) {
      withdrawNamespaceCounters(*tables_, counterName(netns));  // in the turns below
   }
   const L3::VrfName vrf = it->second.feed->vrf();
   served_.erase(it);
   publish(RibAwaitsStep{{}, {vrf}});
   publish(CollectionStep{4, vrf, false});
   publish(CollectionStep{6, vrf, false});
   publish(VrfLocalStep{vrf, true, {}, {}});
   publish(VrfIdMapStep{VrfIdMapStep::Op::remove, {}, {vrf}});
   announcedReady_.erase(vrf.str());
   std::cerr << "connroute: VRF " << vrf.str() << " deleted (its namespace went)\n";
}

void LiveLoop::rescanNamespaces() {
   std::set<std::string> present;
   std::error_code error;
   for (const auto& entry : fs::directory_iterator(options_.netnsDir, error)) {
      present.insert(entry.path().filename().string());
   }
   // A file made anew under a name no VRF can have is reported anew.
   std::erase_if(badNames_, [&](const std::string& netns) { return !present.contains(netns); });
   std::vector<std::string> gone;
   for (const auto& [netns, served] : served_) {
      if (!netns.empty() && (!present.contains(netns) ||
                             identityOf(fs::path(options_.netnsDir) / netns) != served.identity)) {
         gone.push_back(netns);  // and served again below if made anew
      }
   }
   for (const auto& [netns, tries] : retries_) {
      if (!netns.empty() && !present.contains(netns)) {
         gone.push_back(netns);
      }
   }
   for (const std::string& netns : gone) {
      unserve(netns);
   }
   serve("");  // if its socket could not be opened before
   for (const std::string& netns : present) {
      serve(netns);
   }
}

// In the turn the messages made, so that readers see them together.
void LiveLoop::publishCounters(const Served& served) {
   if (tables_) {
      publishNamespaceCounters(*tables_, countersOf(served));
   }
}

std::string LiveLoop::metricsText() const {
   Metrics metrics = host_->metrics();
   for (const auto& [netns, served] : served_) {
      metrics.namespaces.push_back(countersOf(served));
   }
   std::ostringstream text;
   writePrometheus(metrics, text);
   return text.str();
}

void LiveLoop::pump(Served& served) {
   // Every message of one read is one turn: a flood commits once per bite,
   // not once per address.
   host_->batch([&] {
      served.socket->receive();
      publishCounters(served);
   });
   if (const std::uint64_t malformed = served.socket->malformedCount(); malformed != served.malformedReported) {
      std::cerr << "connroute: VRF " << served.feed->vrf().str() << ": "
                << malformed - served.malformedReported << " malformed rtnetlink messages skipped\n";
      served.malformedReported = malformed;
   }
   if (served.feed->wantsDump() && !served.socket->dumping()) {
      std::cerr << "connroute: VRF " << served.feed->vrf().str()
                << ": kernel messages were lost, reading the namespace again\n";
      served.feed->dumpStarted();
      served.socket->dump();
   }
}

bool LiveLoop::everythingReady() const {
   if (!verified_ || !retries_.empty() || !host_->drained()) {
      return false;
   }
   const std::vector<std::string> ready = host_->readyVrfs();
   for (const auto& [netns, served] : served_) {
      if (std::find(ready.begin(), ready.end(), served.feed->vrf().str()) == ready.end()) {
         return false;
      }
   }
   return true;
}

// What an earlier run left for VRFs that no namespace serves now (one
// deleted while the agent was down): a cold start would have none of it.
void LiveLoop::clearUnservedTables() {
   if (!tables_) {
      return;
   }
   std::set<std::uint32_t> servedIds;
   for (const auto& [netns, served] : served_) {
      servedIds.insert(served.feed->vrfId().value());
   }
   for (const auto& [path, number] : tables_->tables()) {
      const auto parsed = Routing::Rib::parseVrfTablePath(path);
      if (parsed && !servedIds.contains(parsed->vrfId)) {
         tables_->clearTable(path);
         tables_->delRange(*tables_->rowsOf(kVrfNameKind), vrfKey(parsed->vrfId));
      }
   }
   tables_->commit();
}

void LiveLoop::afterTurns() {
   if (!verified_) {
      bool synced = true;
      for (const auto& [netns, served] : served_) {
         synced = synced && served.feed->synced();
      }
      if (synced && retries_.empty()) {
         verified_ = true;
         publish(VerificationStep{true});  // every namespace's first dump is in
         clearUnservedTables();
      }
   }
   for (const std::string& name : host_->readyVrfs()) {
      if (announcedReady_.insert(name).second) {
         std::cerr << "connroute: VRF " << name << " ready\n";
      }
   }
}

double monotonicSeconds() {
   return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void LiveLoop::tellServiceManager() {
   const Host::Totals totals = host_->totals();
   const std::size_t ready = host_->readyVrfs().size();
   notifier_.statusIs("VRFs served " + std::to_string(totals.vrfs) + ", ready " + std::to_string(ready) +
                            ", routes " + std::to_string(totals.routes) + ", backlog " +
                            std::to_string(totals.backlog),
                      monotonicSeconds());
   if (everythingReady()) {
      notifier_.ready();
   }
}

// The kernel announces no change of bc_forwarding, so every namespace's
// settings are read again this often: a change reaches the routes within
// about a second.
constexpr double kSettingsPeriod = 1.0;

void LiveLoop::readSettingsWhenDue() {
   const double now = monotonicSeconds();
   if (now < nextSettingsRead_) {
      return;
   }
   for (auto& [netns, served] : served_) {
      served.socket->refreshSettings();
   }
   nextSettingsRead_ = now + kSettingsPeriod;
}

// Until the next clock, the next message to the service manager, the next
// read of the settings, or the next try of a namespace not yet enterable,
// whichever comes first.
int LiveLoop::epollTimeout() const {
   const double now = monotonicSeconds();
   std::optional<double> next = host_->secondsToNextClock();
   if (const auto message = notifier_.secondsToNextMessage(now)) {
      next = next ? std::min(*next, *message) : *message;
   }
   if (const auto metrics = metrics_.secondsToNextWrite(now)) {
      next = next ? std::min(*next, *metrics) : *metrics;
   }
   const double settings = std::max(nextSettingsRead_ - now, 0.0);
   next = next ? std::min(*next, settings) : settings;
   int timeout = next ? static_cast<int>(std::ceil(std::min(*next, 3600.0) * 1e3)) : -1;
   if (!retries_.empty() && (timeout < 0 || timeout > 20)) {
      timeout = 20;
   }
   return timeout;
}

int LiveLoop::run() {
   for (;;) {
      afterTurns();
      tellServiceManager();
      if (options_.once && everythingReady()) {
         auto writer = options_.json ? jsonDumpWriter(std::cout) : textDumpWriter(std::cout);
         writer->scenarioBegin("live", "every VRF ready");
         host_->dump("ready", *writer);
         writer->scenarioEnd();
         std::cout.flush();
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
      epoll_event events[16];
      const int n = ::epoll_wait(epoll_.fd, events, 16, epollTimeout());
      if (n < 0 && errno != EINTR) {
         throw LiveError(std::string("epoll: ") + std::strerror(errno));
      }
      bool rescan = false;
      for (int i = 0; i < n; ++i) {
         const epoll_event& event = events[i];
         if (event.data.u64 != kSignalsTag && event.data.u64 != kInotifyTag) {
            pump(*static_cast<Served*>(event.data.ptr));
         } else if (event.data.u64 == kSignalsTag) {
            signalfd_siginfo info;
            while (::read(signals_.fd, &info, sizeof info) == sizeof info) {
               stopping_ = true;
            }
         } else {
            char buffer[4096];
            while (::read(inotify_.fd, buffer, sizeof buffer) > 0) {
            }
            rescan = true;  // after the sockets: it may take a namespace away
            unservable_.clear();
         }
      }
      if (rescan || !retries_.empty()) {
         rescanNamespaces();
      }
      host_->runDueClocks();
      notifier_.tick(monotonicSeconds());
      readSettingsWhenDue();
      metrics_.writeIfDue(monotonicSeconds(), [this] { return metricsText(); });
   }
}

}  // namespace

int runLive(const LiveOptions& options) {
   LiveLoop loop(options);
   return loop.run();
}

}  // namespace App
