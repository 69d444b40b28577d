#include "app/live/NamespaceService.h"

#include <algorithm>
#include <cmath>

#include "app/TableRows.h"
#include "platform/rib/TablePaths.h"

namespace App {

namespace {

// A namespace that cannot be opened is tried again after this long, then
// twice as long each time, up to the longest wait.
constexpr double kFirstRetry = 0.02;
constexpr double kLongestRetry = 30.0;
// Failures after which it is reported (about 1.3 s of them): a namespace
// just made by `ip netns add` is not mounted yet for a moment.
constexpr int kFailuresReported = 7;

// How metrics name a namespace: the agent's own is "default", a name no
// named namespace may have (it is refused as a VRF's).
std::string counterName(const std::string& netns) { return netns.empty() ? std::string(L3::VrfName::kDefault) : netns; }

Linux::RtnlSocket::Counters operator+(Linux::RtnlSocket::Counters a, const Linux::RtnlSocket::Counters& b) {
   a.messages += b.messages;
   a.eventsLost += b.eventsLost;
   a.dumps += b.dumps;
   return a;
}

}  // namespace

NamespaceService::NamespaceService(Host& host, VrfIds& vrfIds, std::shared_ptr<Plim::RowDatabase> tables,
                                   Seams seams)
      : host_(host), vrfIds_(vrfIds), tables_(std::move(tables)), seams_(seams) {}

NamespaceService::~NamespaceService() {
   for (auto& [netns, served] : served_) {
      disconnect(*served);
   }
}

void NamespaceService::publish(Action action) { host_.apply(Step{0, "live", std::move(action)}, noWriter_); }

std::optional<L3::VrfName> NamespaceService::vrfFor(const std::string& netns) {
   if (badNames_.contains(netns)) {
      return std::nullopt;
   }
   try {
      if (netns == L3::VrfName::kDefault) {
         throw std::invalid_argument("'default' is the host's own namespace's VRF");
      }
      L3::VrfName vrf(netns.empty() ? std::string(L3::VrfName::kDefault) : netns);
      if (!netns.empty()) {
         (void)Ovel::NamespaceName(netns);
      }
      return vrf;
   } catch (const std::exception& e) {
      seams_.log << "connroute: namespace '" << netns << "' is not served: " << e.what() << '\n';
      badNames_.insert(netns);
      return std::nullopt;
   }
}

void NamespaceService::failed(const std::string& netns, Retry& retry, const std::string& error) {
   ++retry.failures;
   const double wait = std::min(kFirstRetry * std::pow(2.0, retry.failures - 1), kLongestRetry);
   retry.nextTry = seams_.clock.now() + wait;
   if (!retry.reported && retry.failures >= kFailuresReported) {
      seams_.log << "connroute: namespace '" << netns << "' is not served: " << error
                 << " (tried again, at most every " << kLongestRetry << " s)\n";
      retry.reported = true;
   }
}

bool NamespaceService::connect(Served& served, Retry& retry) {
   try {
      served.socket = seams_.sockets.open(
            served.netns.empty() ? std::string() : seams_.directory.pathOf(served.netns), *served.feed);
      for (int fd : served.socket->fds()) {
         seams_.fds.add(fd, &served);
      }
      served.feed->dumpStarted();
      served.socket->dump();
      return true;
   } catch (const std::exception& e) {
      disconnect(served);
      failed(served.netns, retry, e.what());
      return false;
   }
}

void NamespaceService::disconnect(Served& served) {
   if (!served.socket) {
      return;
   }
   for (int fd : served.socket->fds()) {
      seams_.fds.remove(fd);
   }
   served.countersBefore = served.countersBefore + served.socket->counters();
   served.socket.reset();
}

void NamespaceService::serve(const std::string& netns) {
   if (served_.contains(netns)) {
      return;
   }
   Retry& retry = pending_[netns];
   if (retry.nextTry > seams_.clock.now()) {
      return;  // not due yet
   }
   const std::optional<L3::VrfName> vrf = vrfFor(netns);
   if (!vrf) {
      pending_.erase(netns);
      return;
   }
   const Vrf::VrfIdMap::VrfId id(vrfIds_.idFor(vrf->str()));
   auto made = std::make_unique<Served>();
   made->netns = netns;
   made->feed = std::make_unique<NamespaceFeed>(netns, *vrf, id, [this](Action a) { publish(std::move(a)); });
   if (!connect(*made, retry)) {
      return;
   }
   pending_.erase(netns);
   // In place before anything can throw: its descriptors carry its address.
   Served& served = *served_.emplace(netns, std::move(made)).first->second;
   served.identity = served.socket->identity();
   publish(VrfIdMapStep{VrfIdMapStep::Op::set, {{*vrf, id}}, {}});
   if (!netns.empty()) {
      publish(VrfLocalStep{*vrf, false, Ip::VrfState::active, Ovel::NamespaceName(netns)});
   }
   publish(CollectionStep{4, *vrf, true});
   publish(CollectionStep{6, *vrf, true});
   publish(RibAwaitsStep{{*vrf}, {}});
   seams_.log << "connroute: serving VRF " << vrf->str() << " (id " << id.value() << ")\n";
}

void NamespaceService::unserve(const std::string& netns) {
   pending_.erase(netns);
   auto it = served_.find(netns);
   if (it == served_.end()) {
      return;
   }
   Served& served = *it->second;
   disconnect(served);
   served.feed->withdrawAll();
   if (tables_) {
      withdrawNamespaceCounters(*tables_, counterName(netns));  // in the turns below
   }
   const L3::VrfName vrf = served.feed->vrf();
   served_.erase(it);
   publish(RibAwaitsStep{{}, {vrf}});
   publish(CollectionStep{4, vrf, false});
   publish(CollectionStep{6, vrf, false});
   publish(VrfLocalStep{vrf, true, {}, {}});
   publish(VrfIdMapStep{VrfIdMapStep::Op::remove, {}, {vrf}});
   announcedReady_.erase(vrf.str());
   seams_.log << "connroute: VRF " << vrf.str() << " deleted (its namespace went)\n";
}

void NamespaceService::rescan() {
   const std::map<std::string, FileIdentity> present = seams_.directory.entries();
   // A file made anew under a name no VRF can have is reported anew.
   std::erase_if(badNames_, [&](const std::string& netns) { return !present.contains(netns); });
   std::erase_if(pending_, [&](const auto& entry) {
      return !entry.first.empty() && !present.contains(entry.first);
   });
   std::vector<std::string> gone;
   for (const auto& [netns, served] : served_) {
      if (netns.empty()) {
         continue;
      }
      const auto found = present.find(netns);
      if (found == present.end() || found->second != served->identity) {
         gone.push_back(netns);  // and served again below if made anew
      }
   }
   for (const std::string& netns : gone) {
      unserve(netns);
   }
   serve("");
   for (const auto& [netns, identity] : present) {
      serve(netns);
   }
   reconnectDue();
}

void NamespaceService::reconnectDue() {
   const double now = seams_.clock.now();
   for (auto& [netns, served] : served_) {
      if (reconnecting(*served) && served->retry.nextTry <= now && connect(*served, served->retry)) {
         seams_.log << "connroute: VRF " << served->feed->vrf().str() << ": reading its namespace again\n";
      }
   }
}

void NamespaceService::onReadable(void* tag) {
   Served& served = *static_cast<Served*>(tag);
   if (!reconnecting(served)) {  // another descriptor of the same read may have failed it
      pump(served);
   }
}

void NamespaceService::pump(Served& served) {
   try {
      // Every message of one read is one turn: a flood commits once per
      // bite, not once per address.
      host_.batch([&] {
         served.socket->receive();
         if (tables_) {
            publishNamespaceCounters(*tables_, countersOf(served));
         }
      });
      const std::uint64_t malformed = served.socket->malformedCount();
      if (malformed != served.malformedReported) {
         seams_.log << "connroute: VRF " << served.feed->vrf().str() << ": "
                    << malformed - served.malformedReported << " malformed rtnetlink messages skipped\n";
         served.malformedReported = malformed;
      }
      if (served.feed->wantsDump() && !served.socket->dumping()) {
         seams_.log << "connroute: VRF " << served.feed->vrf().str()
                    << ": kernel messages were lost, reading the namespace again\n";
         served.feed->dumpStarted();
         served.socket->dump();
      }
      if (!served.socket->dumping()) {
         served.retry = Retry{};  // a dump is in: the sockets work again
      }
   } catch (const Linux::NetlinkError& e) {
      lostSockets(served, e.what());
   }
}

// Its routes stay as they are until a fresh dump reconciles them.
void NamespaceService::lostSockets(Served& served, const std::string& error) {
   seams_.log << "connroute: VRF " << served.feed->vrf().str() << ": " << error
              << ": opening its sockets again\n";
   disconnect(served);
   served.malformedReported = 0;  // the count is the socket's
   served.retry.reported = true;
   failed(served.netns, served.retry, error);
}

void NamespaceService::refreshSettings() {
   for (auto& [netns, served] : served_) {
      if (reconnecting(*served) || served->socket->dumping()) {
         continue;
      }
      try {
         served->socket->refreshSettings();
      } catch (const Linux::NetlinkError& e) {
         lostSockets(*served, e.what());
      }
   }
}

std::optional<double> NamespaceService::secondsToNextTry() const {
   std::optional<double> next;
   auto consider = [&](const Retry& retry) { next = std::min(next.value_or(retry.nextTry), retry.nextTry); };
   for (const auto& [netns, retry] : pending_) {
      consider(retry);
   }
   for (const auto& [netns, served] : served_) {
      if (reconnecting(*served)) {
         consider(served->retry);
      }
   }
   if (!next) {
      return std::nullopt;
   }
   return std::max(0.0, *next - seams_.clock.now());
}

// A namespace whose first dump is not in, or that is still being tried, and
// has not failed long enough to be given up on: the verification waits.
bool NamespaceService::blockingVerification() const {
   for (const auto& [netns, retry] : pending_) {
      if (!retry.reported) {
         return true;
      }
   }
   for (const auto& [netns, served] : served_) {
      if (!served->feed->synced() && served->retry.failures < kFailuresReported) {
         return true;
      }
   }
   return false;
}

bool NamespaceService::everythingReady() const {
   if (!verified_ || blockingVerification() || !host_.drained()) {
      return false;
   }
   const std::vector<std::string> ready = host_.readyVrfs();
   for (const auto& [netns, served] : served_) {
      if (std::find(ready.begin(), ready.end(), served->feed->vrf().str()) == ready.end()) {
         return false;
      }
   }
   return true;
}

// What an earlier run left for VRFs that no namespace serves now (one
// deleted while the agent was down): a cold start would have none of it.
void NamespaceService::clearUnservedTables() {
   if (!tables_) {
      return;
   }
   std::set<std::uint32_t> servedIds;
   for (const auto& [netns, served] : served_) {
      servedIds.insert(served->feed->vrfId().value());
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

void NamespaceService::afterTurns() {
   if (!verified_ && !blockingVerification()) {
      verified_ = true;
      publish(VerificationStep{true});  // every namespace's first dump is in
      clearUnservedTables();
   }
   for (const std::string& name : host_.readyVrfs()) {
      if (announcedReady_.insert(name).second) {
         seams_.log << "connroute: VRF " << name << " ready\n";
      }
   }
}

NamespaceCounters NamespaceService::countersOf(const Served& served) const {
   const auto total = served.socket ? served.countersBefore + served.socket->counters() : served.countersBefore;
   return NamespaceCounters{counterName(served.netns), total.messages, total.eventsLost,
                            total.dumps > 0 ? total.dumps - 1 : 0};
}

std::vector<NamespaceCounters> NamespaceService::counters() const {
   std::vector<NamespaceCounters> all;
   for (const auto& [netns, served] : served_) {
      all.push_back(countersOf(*served));
   }
   return all;
}

}  // namespace App
