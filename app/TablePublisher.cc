#include "app/TablePublisher.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "app/read/PublishedRows.h"
#include "platform/plim/MdbBytes.h"
#include "platform/plim/RowPlace.h"
#include "platform/plim/SortedWrites.h"
#include "platform/vok/SameBytes.h"

namespace App {

using namespace Routing::ConnectedRoute;
namespace Rib = Routing::Rib;

// Hears a VRF's store announce the prefixes the installer has dealt with.
// Every change of a prefix's candidates queues a backlog entry, and the
// installer decides the owner when it drains it: so the published
// candidates and owner change when the entry leaves the backlog, together
// with the route, never half a step ahead of it.
//
// They are written into the turn in runs, while a drain slice runs, so
// that the slice's clock sees their cost as it sees its routes'; the turn's
// end writes the last run.
class TablePublisher::Watch final : public Vok::Reactor<IntfBacklog> {
 public:
   Watch(TablePublisher& publisher, std::uint32_t vrfId, Vok::Ptr<const IntfBacklog> store)
         : Vok::Reactor<IntfBacklog>(std::move(store)), publisher_(publisher), vrfId_(vrfId) {}
   void onBacklog(const IntfIdAndPrefix& key) override {
      if (!notifier()->backlog(key)) {
         changedIs(key.genPrefix());  // drained (a prefix may come twice: harmless)
         if (changed.size() == Plim::kRowRun) {
            publisher_.publishCandidates(vrfId_, *this);
         }
      }
   }

   // A prefix to publish, with its place: the key's order.
   struct Changed {
      std::uint32_t place;
      Ovel::IpGenPrefix prefix;

      friend bool operator<(const Changed& a, const Changed& b) noexcept {
         return Plim::placedLess(a.place, a.prefix, b.place, b.prefix);
      }
      friend bool operator==(const Changed& a, const Changed& b) noexcept {
         return Vok::sameBytes(a.prefix, b.prefix);
      }
   };
   void changedIs(const Ovel::IpGenPrefix& prefix) { changed.push_back({Plim::placeOf(prefix), prefix}); }

   std::vector<Changed> changed;

 private:
   TablePublisher& publisher_;
   const std::uint32_t vrfId_;
};

namespace {

MDB_dbi rowsOf(Plim::RowDatabase& db, std::string_view kind) { return *db.rowsOf(kind); }

void put(Plim::RowDatabase& db, MDB_dbi dbi, std::string_view key, std::string_view value) {
   MDB_val k{key.size(), const_cast<char*>(key.data())};
   MDB_val v{value.size(), const_cast<char*>(value.data())};
   db.check(mdb_put(db.txn(), dbi, &k, &v, 0), "publish a row");
}

void del(Plim::RowDatabase& db, MDB_dbi dbi, std::string_view key) {
   MDB_val k{key.size(), const_cast<char*>(key.data())};
   if (int rc = mdb_del(db.txn(), dbi, &k, nullptr); rc != MDB_NOTFOUND) {
      db.check(rc, "withdraw a published row");
   }
}

std::string flag(const std::optional<bool>& value) { return value ? (*value ? "yes" : "no") : "-"; }

}  // namespace

TablePublisher::TablePublisher(std::shared_ptr<Plim::RowDatabase> db, const Agent::SharedState& shared)
      : db_(std::move(db)), shared_(shared) {
   // What an earlier run published describes that run's agent, not this one.
   for (std::string_view kind : {kVrfStatusKind, kAgentKind, kNetnsKind}) {
      db_->check(mdb_drop(db_->txn(), rowsOf(*db_, kind), 0), "clear what an earlier run published");
   }
   for (MDB_dbi candidates : db_->numberedRowsOf(kCandidatesKind)) {
      db_->check(mdb_drop(db_->txn(), candidates, 0), "clear what an earlier run published");
   }
}

TablePublisher::~TablePublisher() = default;

void TablePublisher::publish(const RootSm* root, double now) {
   char time[32];
   std::snprintf(time, sizeof(time), "%.6f", now);
   if (std::string row = std::string(root ? "running" : "stopped") + "\t" + time; row != agentRow_) {
      put(*db_, rowsOf(*db_, kAgentKind), "agent", row);
      agentRow_ = std::move(row);
   }
   // Each container is new, the same as last turn, or gone; only what
   // changed costs more than a comparison.
   ++turn_;
   if (root) {
      for (const auto& [name, container] : root->containerSm()) {
         if (!container->intfBacklog() || !container->intfBacklogSm()) {
            continue;  // a container still being built
         }
         const std::uint32_t vrfId = container->vrfId().value();
         auto it = published_.find(vrfId);
         if (it != published_.end() && (it->second.container != container.get() ||
                                        it->second.watch->notifier() != container->intfBacklog())) {
            forget(vrfId);  // another container of the same identifier
            published_.erase(it);
            it = published_.end();
         }
         if (it == published_.end()) {
            it = published_.try_emplace(vrfId).first;
            watch(vrfId, *container, it->second);
            put(*db_, rowsOf(*db_, kVrfNameKind), vrfKey(vrfId), container->vrfName().str());
         }
         Published& published = it->second;
         published.turn = turn_;
         publishCandidates(vrfId, *published.watch);
         if (VrfStatusRow status = vrfStatusOf(*root, *container, shared_); status != published.status) {
            put(*db_, rowsOf(*db_, kVrfStatusKind), vrfKey(vrfId), vrfStatusValue(status));
            published.status = std::move(status);
         }
      }
   }
   for (auto it = published_.begin(); it != published_.end();) {
      if (it->second.turn != turn_) {
         forget(it->first);
         if (root) {
            // Gone while the agent runs: the VRF is no more. When the agent
            // stops, every VRF keeps its name for the rows it leaves.
            del(*db_, rowsOf(*db_, kVrfNameKind), vrfKey(it->first));
         }
         it = published_.erase(it);
      } else {
         ++it;
      }
   }
}

void TablePublisher::watch(std::uint32_t vrfId, const ContainerSm& container, Published& published) {
   published.container = &container;
   published.watch = std::make_unique<Watch>(*this, vrfId, container.intfBacklog());
   // Everything the store holds now is news to readers.
   const auto& sets = container.intfBacklog()->intfIdsByPrefixes();
   for (auto it = sets.begin(); it != sets.end(); ++it) {
      published.watch->changedIs(it->first);
   }
}

void TablePublisher::forget(std::uint32_t vrfId) {
   if (const auto candidates = db_->existingRowsOf(kCandidatesKind, vrfId)) {
      db_->check(mdb_drop(db_->txn(), *candidates, 0), "withdraw a VRF's candidates");
   }
   del(*db_, rowsOf(*db_, kVrfStatusKind), vrfKey(vrfId));
}

void TablePublisher::publishCandidates(std::uint32_t vrfId, Watch& watch) {
   if (watch.changed.empty()) {
      return;
   }
   const IntfBacklog& store = *watch.notifier();
   // In key order and once each, like the tables' own writes.
   std::sort(watch.changed.begin(), watch.changed.end());
   watch.changed.erase(std::unique(watch.changed.begin(), watch.changed.end()), watch.changed.end());
   Plim::SortedWrites writes(*db_, *db_->rowsOf(kCandidatesKind, vrfId));
   CandidatesValue value;
   for (const auto& [place, prefix] : watch.changed) {
      auto key = Plim::placedKey(place, prefix);  // candidateKey(), its place known
      const MDB_val k{key.size(), key.data()};
      // One lookup finds the candidates and the installed owner.
      const PrefixRecord* record = store.prefixRecord(prefix);
      const auto set = listedCandidates(record, store.intfNumbers());
      const IntfNumber owner = record ? record->installedOwner : PrefixRecord::kNoOwner;
      if (owner == PrefixRecord::kNoOwner && !set) {
         writes.del(k, "withdraw a published row");
         continue;
      }
      value.start(owner == PrefixRecord::kNoOwner ? std::string_view("-")
                                                  : store.intfNumbers().name(owner).name());
      if (set) {
         set->forEach([&](const IntfIdSet::Entry& entry) {
            value.add(entry.key.intfId().name(), entry.key.addrWithMask(),
                      static_cast<unsigned>(entry.property.routeType()), entry.property.viaSetKey().value());
         });
      }
      writes.put(k, Plim::bytesOf(value.bytes()), "publish a row");
   }
   watch.changed.clear();
}

void publishNamespaceCounters(Plim::RowDatabase& db, const NamespaceCounters& counters) {
   put(db, rowsOf(db, kNetnsKind), counters.netns, namespaceCountersValue(counters));
}

void withdrawNamespaceCounters(Plim::RowDatabase& db, const std::string& netns) {
   del(db, rowsOf(db, kNetnsKind), netns);
}

VrfStatusRow vrfStatusOf(const RootSm& root, const ContainerSm& container,
                         const Agent::SharedState& shared) {
   VrfStatusRow row;
   row.name = container.vrfName().str();
   if (root.allVrfReadyStatus()) {
      if (auto record = root.allVrfReadyStatus()->vrfReadyStatus(container.vrfName())) {
         row.v4Ready = flag(record->v4ConnectedRoutesReady());
         row.v6Ready = flag(record->v6ConnectedRoutesReady());
      }
   }
   if (auto proto = shared.protoVrfStatusDir->entityAs<Rib::ProtoVrfStatus>(row.name)) {
      row.protoReady = flag(proto->ready());
      row.protoReadyTime = proto->readyTime();
   }
   const IntfBacklogSm& installer = *container.intfBacklogSm();
   row.backlog = installer.pendingCount();
   row.drains = installer.handleBacklogCallCount();
   row.longestSlice = installer.longestSlice();
   return row;
}

}  // namespace App
