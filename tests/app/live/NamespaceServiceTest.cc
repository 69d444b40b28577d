// The live agent's decisions about namespaces, on fakes of the host: a
// netns directory, sockets that open, fail and deliver a namespace's one
// link on demand, and a registry of descriptors; the engine is the real
// one, on virtual time. What is checked is what a user sees: which VRFs are
// served, with which routes, what is reported, and when everything is
// ready.
#include "app/live/NamespaceService.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>
#include <set>
#include <sstream>

namespace App {
namespace {

struct FakeDirectory final : NetnsDirectory {
   std::map<std::string, FileIdentity> files;
   std::map<std::string, FileIdentity> entries() const override { return files; }
   std::string pathOf(const std::string& netns) const override { return "/netns/" + netns; }
};

// What every namespace holds: link 2, "e0", up, with 10.<n>.0.1/24, n given
// per namespace path.
struct FakeKernel {
   std::map<std::string, int> subnet;  // by path
   std::map<std::string, int> openFailures;  // left to fail, -1 for ever
   std::set<std::string> failReceive, failRefresh;  // paths whose reads fail
   std::vector<std::pair<std::string, double>> opens;  // path, time tried
};

class FakeSocket final : public NamespaceSocket {
 public:
   FakeSocket(FakeKernel& kernel, std::string path, FileIdentity identity, Linux::RtnlListener& listener,
              int fd)
         : kernel_(kernel), path_(std::move(path)), identity_(identity), listener_(listener), fd_(fd) {}
   FileIdentity identity() const override { return identity_; }
   std::vector<int> fds() const override { return {fd_, fd_ + 1}; }
   void dump() override {
      dumping_ = true;
      ++counters_.dumps;
   }
   bool dumping() const override { return dumping_; }
   void refreshSettings() override {
      if (kernel_.failRefresh.contains(path_)) {
         throw Linux::NetlinkError("cannot ask the kernel for a dump: Connection refused");
      }
   }
   // Delivers the dump asked for, if any.
   void receive() override {
      if (kernel_.failReceive.contains(path_)) {
         throw Linux::NetlinkError("cannot read an rtnetlink socket: No buffer space available");
      }
      if (!dumping_) {
         return;
      }
      listener_.onLink(Linux::LinkRecord{2, "e0", true, false, false});
      Linux::AddrRecord addr;
      addr.family = AF_INET;
      addr.ifindex = 2;
      const std::uint32_t be = htonl(0x0A000001u | std::uint32_t(kernel_.subnet[path_]) << 16);
      std::memcpy(addr.addr.data(), &be, 4);
      addr.prefixLen = 24;
      listener_.onAddr(addr);
      dumping_ = false;
      counters_.messages += 2;
      listener_.onDumpDone();
   }
   std::uint64_t malformedCount() const override { return 0; }
   const Linux::RtnlSocket::Counters& counters() const override { return counters_; }

 private:
   FakeKernel& kernel_;
   std::string path_;
   FileIdentity identity_;
   Linux::RtnlListener& listener_;
   int fd_;
   bool dumping_ = false;
   Linux::RtnlSocket::Counters counters_;
};

struct FakeSockets final : SocketFactory {
   FakeKernel& kernel;
   FakeDirectory& directory;
   Vok::ManualTimeSource& clock;
   int nextFd = 10;
   FakeSockets(FakeKernel& k, FakeDirectory& d, Vok::ManualTimeSource& c) : kernel(k), directory(d), clock(c) {}
   std::unique_ptr<NamespaceSocket> open(const std::string& path, Linux::RtnlListener& listener) override {
      kernel.opens.emplace_back(path, clock.peek());
      if (int& left = kernel.openFailures[path]; left != 0) {
         left -= left > 0;
         throw Linux::NetlinkError("cannot enter the namespace " + path + ": Invalid argument");
      }
      nextFd += 2;
      const auto file = directory.files.find(path.substr(path.find_last_of('/') + 1));
      const FileIdentity identity = path.empty() ? FileIdentity{} : file->second;
      return std::make_unique<FakeSocket>(kernel, path, identity, listener, nextFd);
   }
};

struct FakeRegistry final : FdRegistry {
   std::map<int, void*> watched;
   bool fail = false;
   void add(int fd, void* tag) override {
      if (fail) {
         throw std::runtime_error("cannot watch a descriptor: No space left on device");
      }
      watched[fd] = tag;
   }
   void remove(int fd) override { watched.erase(fd); }
};

struct Service : ::testing::Test {
   Vok::ManualTimeSource clock{100.0};
   FakeDirectory directory;
   FakeKernel kernel;
   FakeSockets sockets{kernel, directory, clock};
   FakeRegistry registry;
   std::ostringstream log;
   Host host{0.0};
   NullDumpWriter writer;
   VrfIds ids{"", nullptr};
   NamespaceService service{host, ids, nullptr, {directory, sockets, registry, clock, log}};

   Service() {
      host.apply(Step{1, "start", StartStep{Agent::StartupMode::coldStart}}, writer);
      kernel.subnet[""] = 0;
   }
   // Every socket reads what waits, then the engine runs its clocks.
   void settle() {
      for (int round = 0; round < 2; ++round) {
         const auto watched = registry.watched;
         for (const auto& [fd, tag] : watched) {
            if (registry.watched.contains(fd)) {
               service.onReadable(tag);
            }
         }
         service.afterTurns();
         host.apply(Step{0, "run", RunStep{10.0}}, writer);
      }
   }
   // Moves the clock to the next try and rescans.
   void nextTry() {
      const auto wait = service.secondsToNextTry();
      ASSERT_TRUE(wait);
      clock.advanceTo(clock.peek() + *wait);
      service.rescan();
   }
   std::size_t lines(const std::string& text) const {
      std::size_t count = 0;
      const std::string all = log.str();
      for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
         ++count;
      }
      return count;
   }
   std::size_t routes() const { return host.totals().routes; }
   bool hasRoute(const std::string& prefix) {
      std::ostringstream text;
      host.dump("now", *textDumpWriter(text));
      return text.str().find(" " + prefix + " ") != std::string::npos;
   }
   // The waits before each of the next `count` tries, each try failing.
   std::vector<double> waits(int count) {
      std::vector<double> seen;
      for (int i = 0; i < count; ++i) {
         seen.push_back(*service.secondsToNextTry());
         nextTry();
         settle();
      }
      return seen;
   }
};

TEST_F(Service, ANamespaceNotYetOpenableIsTriedAgainAfterLongerAndLongerWaits) {
   directory.files["blue"] = {1, 1};
   kernel.subnet["/netns/blue"] = 2;
   kernel.openFailures["/netns/blue"] = 3;
   service.rescan();
   for (int i = 0; i < 3; ++i) {
      nextTry();
   }
   std::vector<double> tries;
   for (const auto& [path, time] : kernel.opens) {
      if (path == "/netns/blue") {
         tries.push_back(time - 100.0);
      }
   }
   ASSERT_EQ(tries.size(), 4u);
   EXPECT_NEAR(tries[1], 0.02, 1e-9);
   EXPECT_NEAR(tries[2], 0.06, 1e-9);
   EXPECT_NEAR(tries[3], 0.14, 1e-9);
   EXPECT_FALSE(service.secondsToNextTry());
   EXPECT_EQ(lines("is not served"), 0u) << "a namespace just made is no failure: " << log.str();
   settle();
   EXPECT_EQ(lines("VRF blue ready"), 1u) << log.str();
   EXPECT_TRUE(service.everythingReady());
   EXPECT_EQ(routes(), 8u);  // 4 routes for each VRF's /24
}

TEST_F(Service, AFileThatIsNoNamespaceIsReportedOnceAndHoldsNothingBack) {
   directory.files["stale"] = {1, 2};
   kernel.openFailures["/netns/stale"] = -1;
   service.rescan();
   settle();
   EXPECT_FALSE(service.everythingReady()) << "the verification waits while it may still open";
   double longest = 0;
   for (int i = 0; i < 20; ++i) {
      longest = std::max(longest, *service.secondsToNextTry());
      nextTry();
   }
   EXPECT_DOUBLE_EQ(longest, 30.0);
   EXPECT_EQ(lines("namespace 'stale' is not served: cannot enter the namespace /netns/stale"), 1u)
         << log.str();
   settle();
   EXPECT_TRUE(service.everythingReady()) << log.str();
   // Made anew: tried from the start, and reported anew.
   directory.files.erase("stale");
   service.rescan();
   EXPECT_FALSE(service.secondsToNextTry());
   directory.files["stale"] = {1, 3};
   service.rescan();
   EXPECT_NEAR(*service.secondsToNextTry(), 0.02, 1e-9);
}

TEST_F(Service, ANamespaceWhoseSocketsFailKeepsItsRoutesAndIsReadAgain) {
   directory.files["blue"] = {1, 1};
   kernel.subnet["/netns/blue"] = 2;
   service.rescan();
   settle();
   ASSERT_EQ(routes(), 8u);
   const std::size_t opened = kernel.opens.size();
   kernel.failReceive = {"", "/netns/blue"};
   kernel.subnet["/netns/blue"] = 3;  // changed while its sockets are down
   settle();  // both namespaces' reads fail: the agent goes on
   EXPECT_EQ(lines(": opening its sockets again"), 2u) << log.str();
   EXPECT_TRUE(registry.watched.empty());
   EXPECT_EQ(routes(), 8u) << "routes stay while the sockets are opened again";
   EXPECT_TRUE(hasRoute("10.2.0.0/24"));
   kernel.failReceive.clear();
   nextTry();
   EXPECT_EQ(kernel.opens.size(), opened + 2);
   EXPECT_EQ(registry.watched.size(), 4u);
   settle();
   EXPECT_EQ(lines("reading its namespace again"), 2u) << log.str();
   EXPECT_TRUE(hasRoute("10.3.0.0/24")) << "the fresh dump reconciled";
   EXPECT_FALSE(hasRoute("10.2.0.0/24"));
   EXPECT_EQ(routes(), 8u);
   const auto counters = service.counters();
   ASSERT_EQ(counters.size(), 2u);
   EXPECT_EQ(counters[0].resyncs, 1u) << "the namespace read again after the failure";
   EXPECT_EQ(counters[0].messages, 4u) << "the counts go on over the sockets it had";
}

TEST_F(Service, SocketsThatKeepFailingAreOpenedLessAndLessOftenAndHoldNothingBack) {
   directory.files["blue"] = {1, 1};
   kernel.failReceive = {"/netns/blue"};
   service.rescan();
   settle();  // its first read fails before any dump is in
   EXPECT_FALSE(service.everythingReady());
   const std::vector<double> seen = waits(8);
   for (std::size_t i = 1; i < seen.size(); ++i) {
      EXPECT_NEAR(seen[i], 2 * seen[i - 1], 1e-9) << "wait " << i;
   }
   EXPECT_EQ(lines(": opening its sockets again"), 9u);
   EXPECT_TRUE(service.everythingReady()) << "given up on for the verification";
   kernel.failReceive.clear();
   nextTry();
   settle();
   EXPECT_TRUE(hasRoute("10.0.0.0/24"));
   EXPECT_TRUE(service.everythingReady());
   // Working again: a later failure waits the shortest time.
   kernel.failRefresh = {"/netns/blue"};
   service.refreshSettings();
   EXPECT_NEAR(*service.secondsToNextTry(), 0.02, 1e-9);
   kernel.failRefresh.clear();
   nextTry();
   EXPECT_EQ(registry.watched.size(), 4u);
}

TEST_F(Service, AFailedRegistrationIsAFailureToOpen) {
   registry.fail = true;
   service.rescan();
   EXPECT_TRUE(registry.watched.empty());
   EXPECT_NEAR(*service.secondsToNextTry(), 0.02, 1e-9);
   registry.fail = false;
   nextTry();
   EXPECT_EQ(registry.watched.size(), 2u);
   settle();
   EXPECT_TRUE(service.everythingReady());
}

TEST_F(Service, ANamespaceDeletedOrMadeAnewEndsItsVrf) {
   directory.files["blue"] = {1, 1};
   kernel.subnet["/netns/blue"] = 2;
   service.rescan();
   settle();
   directory.files["blue"] = {1, 9};  // deleted and made again between two looks
   kernel.subnet["/netns/blue"] = 5;
   service.rescan();
   settle();
   EXPECT_EQ(lines("VRF blue deleted"), 1u);
   EXPECT_EQ(lines("serving VRF blue"), 2u);
   EXPECT_TRUE(hasRoute("10.5.0.0/24"));
   EXPECT_FALSE(hasRoute("10.2.0.0/24"));
   service.rescan();
   EXPECT_EQ(lines("serving VRF blue"), 2u) << "the same file is the same namespace";
   directory.files.clear();
   service.rescan();
   settle();
   EXPECT_EQ(lines("VRF blue deleted"), 2u);
   EXPECT_EQ(routes(), 4u) << "the VRFs served hold the default namespace's routes alone";
   EXPECT_EQ(registry.watched.size(), 2u) << "the default namespace's alone";
}

TEST_F(Service, NamesNoVrfCanHaveAreReportedOncePerFile) {
   directory.files["default"] = {1, 4};
   directory.files[std::string(101, 'a')] = {1, 5};
   for (int i = 0; i < 3; ++i) {
      service.rescan();
   }
   EXPECT_EQ(lines("namespace 'default' is not served"), 1u) << log.str();
   EXPECT_EQ(lines("namespace 'aaaa"), 1u) << log.str();
   EXPECT_FALSE(service.secondsToNextTry()) << "nothing to try again";
   directory.files.erase("default");
   service.rescan();
   directory.files["default"] = {1, 6};
   service.rescan();
   EXPECT_EQ(lines("namespace 'default' is not served"), 2u);
   settle();
   EXPECT_TRUE(service.everythingReady());
}

}  // namespace
}  // namespace App
