#include "install/IntfBacklogSm.h"

#include <algorithm>
#include <cstdlib>

#include "install/IntfBacklogSmTrace.h"
#include "platform/trace/Zipmark.h"
#include "platform/vok/Assert.h"

namespace Routing::ConnectedRoute {

const Vok::TraceHandle& intfBacklogSmTrace() {
   static const Vok::TraceHandle handle("IntfBacklogSm");
   return handle;
}

const Agent::FeatureToggle& vrfScaleToggle() {
   static const Agent::FeatureToggle& toggle = Agent::FeatureToggle::handle("VrfScaleToggle");
   return toggle;
}

namespace {

// The drain's test mode: 0 normal, 1 drop entries unprocessed, 2 or more
// leave them where they are.
long backlogTestMode() {
   const char* value = std::getenv("INTERFACEROUTEINFOSM_TEST");
   return value ? std::strtol(value, nullptr, 10) : 0;
}

}  // namespace

class IntfBacklogSm::VokIntfBacklog final : public Vok::Reactor<IntfBacklog> {
 public:
   VokIntfBacklog(Vok::Ptr<const IntfBacklog> store, IntfBacklogSm& owner)
         : Vok::Reactor<IntfBacklog>(std::move(store)), owner_(owner) {}
   // A reactor being torn down is a zombie and never gets here.
   void onBacklog(const IntfIdAndPrefix& key) override {
      if (!owner_.inheritedFalse_.empty()) {
         owner_.inheritedFalse_.erase(key);  // from now on the entry's value decides
      }
      owner_.scheduleBacklog();
   }

 private:
   IntfBacklogSm& owner_;
};

IntfBacklogSm::IntfBacklogSm(L3::VrfName vrfName, VrfId vrfId, Vok::ActivityManager* systemClock,
                             Vok::Ptr<const Ip::Status> ipStatus,
                             Vok::Ptr<const Ip6::Status> ip6Status,
                             Vok::Ptr<Rib::Ip::ViaConfig> ipv4ViaConfig,
                             Vok::Ptr<Rib::RouteConfig> route4Config,
                             Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig,
                             Vok::Ptr<Rib::Ip::ViaConfig> ipv6ViaConfig,
                             Vok::Ptr<Rib::RouteConfig> route6Config,
                             Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
                             Vok::Ptr<Rib::ViaSetConfig> viaSetConfig,
                             Vok::Ptr<IntfBacklog> intfBacklog)
      : vrfName_(std::move(vrfName)),
        vrfId_(vrfId),
        ipStatus_(std::move(ipStatus)),
        ip6Status_(std::move(ip6Status)),
        tables_{{std::move(ipv4ViaConfig), std::move(route4Config), std::move(route4OrmoConfig)},
                {std::move(ipv6ViaConfig), std::move(route6Config), std::move(route6OrmoConfig)},
                std::move(viaSetConfig)},
        intfBacklog_(std::move(intfBacklog)) {
   if (systemClock) {
      backlogClock_ = std::make_unique<Vok::Clock>(*systemClock, [this] { handleBacklog(); });
   }
   if (intfBacklog_) {
      intfBacklogReactor_ = std::make_unique<VokIntfBacklog>(intfBacklog_, *this);
      // A store serves one installer at a time: a new one takes over the
      // owner records and has installed nothing yet.
      intfBacklog_->installedOwnerDelAll();
      for (const auto& [key, value] : intfBacklog_->backlog()) {
         if (!value) {
            inheritedFalse_.tryEmplace(key, true);
         }
      }
   }
}

// The reactor and the clock go with the machine; nothing is written
// to the RIB on the way out.
IntfBacklogSm::~IntfBacklogSm() {
   if (intfBacklogReactor_) {
      intfBacklogReactor_->isZombieIs(true);
   }
}

Vok::Ptr<IntfBacklogSm> intfBacklogSmFactory(
      L3::VrfName vrfName, Vrf::VrfIdMap::VrfId vrfId, Vok::ActivityManager* systemClock,
      Vok::Ptr<const Ip::Status> ipStatus, Vok::Ptr<const Ip6::Status> ip6Status,
      Vok::Ptr<Rib::Ip::ViaConfig> ipv4ViaConfig, Vok::Ptr<Rib::RouteConfig> route4Config,
      Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig, Vok::Ptr<Rib::Ip::ViaConfig> ipv6ViaConfig,
      Vok::Ptr<Rib::RouteConfig> route6Config, Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
      Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<IntfBacklog> intfBacklog) {
   auto sm = Vok::make<IntfBacklogSm>(
         std::move(vrfName), vrfId, systemClock, std::move(ipStatus), std::move(ip6Status),
         std::move(ipv4ViaConfig), std::move(route4Config), std::move(route4OrmoConfig),
         std::move(ipv6ViaConfig), std::move(route6Config), std::move(route6OrmoConfig),
         std::move(viaSetConfig), std::move(intfBacklog));
   sm->handleInitialized();
   return sm;
}

void IntfBacklogSm::handleInitialized() {
   VOK_TRACE(intfBacklogSmTrace(), 0, describe(), "handleInitialized");
   if (backlogClock_) {
      backlogClock_->nextTimeIs(Vok::never);
   }
   Vok::ValidPtr<IntfBacklog> store(intfBacklog_);
   store->intfViaSetKeyStatus4Is(Ovel::AddressFamily::ipv4);
   store->intfViaSetKeyStatus6Is(Ovel::AddressFamily::ipv6);
   initialized_ = true;
}

const Vok::Ptr<IntfViaSetKeyStatus>& IntfBacklogSm::intfViaSetKeyStatus4() const {
   return Vok::ValidPtr<IntfBacklog>(intfBacklog_)->intfViaSetKeyStatus4();
}

const Vok::Ptr<IntfViaSetKeyStatus>& IntfBacklogSm::intfViaSetKeyStatus6() const {
   return Vok::ValidPtr<IntfBacklog>(intfBacklog_)->intfViaSetKeyStatus6();
}

const IntfBacklog::Backlog& IntfBacklogSm::backlog() const {
   return Vok::ValidPtr<IntfBacklog>(intfBacklog_)->backlog();
}

void IntfBacklogSm::backlogDelayIs(double seconds) {
   if (seconds == backlogDelay_) {
      return;
   }
   backlogDelay_ = seconds;
   scheduleBacklog();
}

void IntfBacklogSm::scheduleBacklog() {
   if (!backlogClock_ || backlogClock_->nextTime() != Vok::never) {
      return;  // an earlier schedule is never postponed
   }
   backlogClock_->nextTimeIs(backlogClock_->manager().now() + backlogDelay_);
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(), "scheduleBacklog vrf=" << vrfName_);
}

bool IntfBacklogSm::pending(const IntfIdAndPrefix& key, bool value) const {
   return value || (!inheritedFalse_.empty() && inheritedFalse_.contains(key));
}

std::size_t IntfBacklogSm::pendingCount() const {
   return intfBacklog_->pendingCount() + inheritedFalse_.size();
}

IntfBacklog::Backlog::const_iterator IntfBacklogSm::firstPendingFrom(
      IntfBacklog::Backlog::const_iterator it) const {
   const IntfBacklog::Backlog& backlog = intfBacklog_->backlog();
   for (bool wrapped = false;;) {
      if (it == backlog.end()) {
         if (wrapped) {
            return it;
         }
         it = backlog.begin();
         wrapped = true;
         continue;
      }
      if (pending(it->first, it->second)) {
         return it;
      }
      ++it;
   }
}

void IntfBacklogSm::handleBacklog() {
   if (!initialized_ || !backlogClock_) {
      return;  // without a clock there is no time to slice by
   }
   ++handleBacklogCallCount_;
   if (pendingCount() == 0) {
      VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
                "backlogSize=" << 0 << " invocation=" << handleBacklogCallCount_);
      ZIPMARK(1, "handleBacklog", Zipmark::text("vrf=", vrfName_.str()),
              Zipmark::integer(" backlog size=", 0),
              Zipmark::integer(" invocation=", handleBacklogCallCount_));
      return;
   }
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
             "start backlogSize=" << pendingCount() << " invocation=" << handleBacklogCallCount_);
   backlogClock_->nextTimeIs(Vok::never);
   const Vok::Seconds start = backlogClock_->manager().now();  // the tables' room is the slice's too
   reserveRouteTables();
   const auto next = drainSlice(sliceStart(), start);
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(), "backlogSize=" << pendingCount() << " done");
   if (pendingCount() != 0) {
      if (auto it = firstPendingFrom(next); it != intfBacklog_->backlog().end()) {
         backlogBookmark_ = it->first;
      }
      scheduleBacklog();
   } else {
      intfBacklog_->backlogEmptyInc(1);
   }
}

// Where a slice starts: the entry the last one stopped at, if it is still
// pending. The store's own backlog is walked: its iterators survive the
// removals of a slice, and its order is a function of the keys alone.
// Pending work is what a copy taken when the installer was built, kept in
// step since, would hold: entries whose value is true, and false ones that
// were already there then and have not changed since (the generic setter
// is the only one that stores false).
IntfBacklog::Backlog::const_iterator IntfBacklogSm::sliceStart() {
   const IntfBacklog::Backlog& backlog = intfBacklog_->backlog();
   auto it = backlog.begin();
   if (backlogBookmark_ != IntfIdAndPrefix()) {
      if (auto bookmarked = backlog.find(backlogBookmark_);
          bookmarked != backlog.end() && pending(bookmarked->first, bookmarked->second)) {
         it = bookmarked;
      }
   }
   backlogBookmark_ = IntfIdAndPrefix();
   return it;
}

// Processes pending entries from `it` on until the quantum since `start`
// is spent or none is left; returns where it stopped.
IntfBacklog::Backlog::const_iterator IntfBacklogSm::drainSlice(IntfBacklog::Backlog::const_iterator it,
                                                               Vok::Seconds start) {
   IntfBacklog& store = *intfBacklog_;
   const IntfBacklog::Backlog& backlog = store.backlog();
   Vok::ActivityManager& clock = backlogClock_->manager();
   const long testMode = backlogTestMode();
   Vok::Seconds now = start;
   do {
      it = firstPendingFrom(it);
      if (it == backlog.end()) {
         break;
      }
      const IntfIdAndPrefix key = it->first;
      const bool remove = testMode == 0 ? !processBacklog(key) : true;
      if (testMode <= 1 && remove) {
         store.backlogDel(key);
      }
      // The iterator survives the removal; wrapping rotates fairly over a
      // backlog that keeps growing.
      if (++it == backlog.end()) {
         it = backlog.begin();
      }
   } while (start + backlogQuantum_ > (now = clock.now()));
   longestSlice_ = std::max(longestSlice_, now - start);  // no reading of its own: time is the clock's
   return it;
}

// Once drained, a family's route table holds a route for every prefix
// with candidates: the table takes its room for them at once, which saves
// the growths on the way (each moving the rows again) when a start-up or a
// flood fills it.
void IntfBacklogSm::reserveRouteTables() {
   if (vrfScaleToggle().enabled()) {
      return;  // the query tables serve every VRF: no one VRF knows their size
   }
   for (const Ovel::AddressFamily af : {Ovel::AddressFamily::ipv4, Ovel::AddressFamily::ipv6}) {
      if (const auto& routeConfig = tables_.of(af).routeConfig) {
         routeConfig->reserveRoutes(intfBacklog_->listedCount(af));
      }
   }
}

ConnectedRouteProperty IntfBacklogSm::installedProperty(const Ovel::IpGenPrefix& prefix) const {
   const FamilyRibTables& tables = tables_.of(prefix.af());
   if (vrfScaleToggle().enabled()) {
      const Rib::IpRibRouteOrq* row = Vok::ValidPtr<Rib::IpRibRouteOrqTable>(tables.queryTable)
                                            ->row(Rib::OrqKey{vrfId_, prefix});
      return row ? ConnectedRouteProperty(row->route().routeType, row->route().viaSetKey)
                 : ConnectedRouteProperty();
   }
   Vok::ValidPtr<Rib::RouteConfig> table(tables.routeConfig);
   try {
      const Rib::Route* route = table->route(prefix);
      return route ? ConnectedRouteProperty(route->routeType, route->viaSetKey)
                   : ConnectedRouteProperty();
   } catch (const Belm::CorruptionDetectedException& error) {
      table->corruptionDetected(error);
      return ConnectedRouteProperty();
   }
}

IntfViaSetKeyStatus& IntfBacklogSm::keyStatusFor(Ovel::AddressFamily af) const {
   switch (af) {
      case Ovel::AddressFamily::ipv4:
         return *Vok::ValidPtr<IntfViaSetKeyStatus>(intfViaSetKeyStatus4());
      case Ovel::AddressFamily::ipv6:
         return *Vok::ValidPtr<IntfViaSetKeyStatus>(intfViaSetKeyStatus6());
      default:
         Vok::assertionFailed("0", __FILE__, __LINE__);
   }
}

bool IntfBacklogSm::processBacklog(const IntfIdAndPrefix& key) {
   const Ovel::IpGenPrefix& prefix = key.genPrefix();
   const Ovel::AddressFamily af = prefix.af();
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
             "intf=" << key.intfId() << " pfx=" << prefix << " af=" << static_cast<int>(af));
   Rib::RouteConfig* routeConfig = tables_.of(af).routeConfig.get();
   Rib::IpRibRouteOrqTable* queryTable = tables_.of(af).queryTable.get();

   const ConnectedRouteProperty installed = installedProperty(prefix);
   // One lookup finds the candidates and where the owner is recorded. The
   // record stays where it is until the owner is written: only the store's
   // own mutators move it, and the tables, counts and via sets written
   // before that notify nobody.
   PrefixRecord* record = intfBacklog_->prefixRecord(prefix);
   const ConnectedRouteProperty candidate = ownerPropertyOf(record);
   if (candidate == installed) {
      return false;
   }
   if (!installed.isEmpty()) {
      const Ovel::IntfId existingIntfId = installedIntfId(prefix);
      VOK_ASSERT(existingIntfId != Ovel::IntfId(), "existingIntfId != Ovel::IntfId()");
      const IntfNumber existing = record->installedOwner;  // a delete below forgets it
      if (candidate.isEmpty()) {
         if (vrfScaleToggle().enabled()) {
            doOrmoRouteConfigDel(existingIntfId, queryTable, prefix, installed.viaSetKey());
         } else {
            doRouteConfigDel(existingIntfId, routeConfig, prefix, installed.viaSetKey());
         }
      }
      // The old owner lets go before the new one takes hold, even when both
      // are the same interface: by its number, as doReleaseViaSetKey would
      // by its name.
      if (keyStatusFor(af).decVskRefcountOf(existing) == 0) {
         delViaSetKey(existingIntfId, af);
      }
   }
   if (!candidate.isEmpty()) {
      const IntfNumber owner = record->candidateOwner;
      keyStatusFor(af).incVskRefcountOf(owner);
      if (vrfScaleToggle().enabled()) {
         ormoRouteConfigAdd(owner, nullptr, queryTable, prefix, candidate.viaSetKey(),
                            candidate.routeType(), record);
      } else {
         routeConfigAdd(owner, nullptr, routeConfig, prefix, candidate.viaSetKey(),
                        candidate.routeType(), record);
      }
   }
   return false;
}

// The route the prefix's owner asks for: its first candidate's, or the
// empty property when the prefix has no set. The drain asks for every entry
// and names the owner only when it writes a route.
ConnectedRouteProperty IntfBacklogSm::ownerPropertyOf(const PrefixRecord* record) {
   if (!record || !record->listed) {
      return {};
   }
   VOK_ASSERT(record->candidateCount() > 0, "intfIdAndAddrs->intfIdAndAddrs() > 0");
   return record->ownerProperty();
}

Ovel::IntfId IntfBacklogSm::getCandidateIntfId(const Ovel::IpGenPrefix& prefix) const {
   const auto set = Vok::ValidPtr<IntfBacklog>(intfBacklog_)->intfIdsByPrefix(prefix);
   VOK_ASSERT(set, "intfIdAndAddrs");
   VOK_ASSERT(set->intfIdAndAddrs() > 0, "intfIdAndAddrs->intfIdAndAddrs() > 0");
   return set->first()->key.intfId();
}

ConnectedRouteProperty IntfBacklogSm::getCandidateRouteProperty(
      const Ovel::IpGenPrefix& prefix) const {
   return ownerPropertyOf(Vok::ValidPtr<IntfBacklog>(intfBacklog_)->prefixRecord(prefix));
}

Ovel::IntfId IntfBacklogSm::installedIntfId(const Ovel::IpGenPrefix& prefix) const {
   const IntfNumber number =
         intfBacklog_ ? intfBacklog_->installedOwner(prefix) : PrefixRecord::kNoOwner;
   return number == PrefixRecord::kNoOwner ? Ovel::IntfId() : intfBacklog_->intfNumbers().name(number);
}

std::size_t IntfBacklogSm::installedIntfIdCount() const {
   return intfBacklog_ ? intfBacklog_->installedOwnerCount() : 0;
}

IntfNumber IntfBacklogSm::ownerNumberOf(const Ovel::IntfId& intfId) {
   return intfBacklog_ ? intfBacklog_->intfNumbers().numberOf(intfId) : PrefixRecord::kNoOwner;
}

void IntfBacklogSm::recordOwner(const Ovel::IpGenPrefix& prefix, IntfNumber owner,
                                PrefixRecord* record) {
   if (record) {
      intfBacklog_->installedOwnerIs(*record, owner);
   } else if (intfBacklog_) {
      intfBacklog_->installedOwnerIs(prefix, owner);
   }
}

void IntfBacklogSm::forgetOwner(const Ovel::IpGenPrefix& prefix) {
   if (intfBacklog_) {
      intfBacklog_->installedOwnerDel(prefix);
   }
}

}  // namespace Routing::ConnectedRoute
