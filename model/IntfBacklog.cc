#include "model/IntfBacklog.h"

#include "model/IntfBacklogTrace.h"
#include "platform/trace/Zipmark.h"
#include "platform/vok/Assert.h"

namespace Routing::ConnectedRoute {

const Vok::TraceHandle& intfBacklogTrace() {
   static const Vok::TraceHandle handle("IntfBacklog");
   return handle;
}

namespace {

// Only IPv4 and IPv6 prefixes of non-zero length are ever stored or queued.
bool storable(const Ovel::IpGenPrefix& prefix) {
   return (prefix.af() == Ovel::AddressFamily::ipv4 || prefix.af() == Ovel::AddressFamily::ipv6) &&
          prefix.len() != 0;
}

}  // namespace

Vok::Ptr<IntfBacklog> intfBacklogFactory(std::string name, L3::VrfName vrfName) {
   return Vok::make<IntfBacklog>(std::move(name), std::move(vrfName));
}

IntfBacklog::~IntfBacklog() {
   // Whatever is left is discarded without per-entry notifications: nobody
   // can be watching a store that is being destroyed.
   status4_ = nullptr;
   status6_ = nullptr;
}

void IntfBacklog::doAddBacklog(const Ovel::IntfId& intfId, const Ovel::IpGenPrefix& prefix) {
   if (!storable(prefix)) {
      return;
   }
   VOK_TRACE(intfBacklogTrace(), 8, describe(), "intf=" << intfId << " pfx=" << prefix);
   ZIPMARK(1, "doAddBacklog", Zipmark::text("vrf=", vrfName_.str()),
           Zipmark::text("intf=", intfId.name()), Zipmark::text(" pfx=", prefix.toString()));
   backlogIs(IntfIdAndPrefix(intfId, prefix), true);
}

void IntfBacklog::backlogIs(const IntfIdAndPrefix& key, bool value) {
   auto [stored, inserted] = backlog_.tryEmplace(key, value);
   if (!inserted) {
      if (*stored == value) {
         return;
      }
      *stored = value;
      falseEntries_ += value ? -1 : 1;
   } else if (!value) {
      ++falseEntries_;
   }
   notify([&](IntfBacklogNotifiee& n) { n.onBacklog(key); });
}

void IntfBacklog::backlogDel(IntfIdAndPrefix key) {
   if (falseEntries_ != 0) {  // rare: only then is the value worth a lookup
      if (const bool* value = backlog_.lookup(key); value && !*value) {
         --falseEntries_;
      }
   }
   if (backlog_.erase(key)) {
      notify([&](IntfBacklogNotifiee& n) { n.onBacklog(key); });
   }
}

void IntfBacklog::backlogDelAll() {
   for (auto it = backlog_.begin(); it != backlog_.end(); ++it) {
      backlogDel(it->first);
   }
}

void IntfBacklog::backlogEmptyInc(std::uint32_t increment) {
   if (increment == 0) {
      return;
   }
   backlogEmpty_ += increment;  // modulo 2^32
   notify([](IntfBacklogNotifiee& n) { n.onBacklogEmpty(); });
}

void IntfBacklog::backlogEmptyIs(std::uint32_t value) {
   if (value == backlogEmpty_) {
      return;
   }
   backlogEmpty_ = value;
   notify([](IntfBacklogNotifiee& n) { n.onBacklogEmpty(); });
}

void IntfBacklog::intfIdsByPrefixIs(const Ovel::IpGenPrefix& prefix, const IntfIdSet& set) {
   // Every candidate's interface has a number before the set is stored:
   // any of them may become the first.
   set.forEach([this](const IntfIdSet::Entry& entry) { intfNumbers_->numberOf(entry.key.intfId()); });
   PrefixRecord& record = *prefixes_.tryEmplace(prefix).first;
   if (record.listed && IntfIdSetView(record, *intfNumbers_) == set) {
      return;
   }
   candidatesIs(record, set);
   list(prefix, record);
   notify([&](IntfBacklogNotifiee& n) { n.onIntfIdsByPrefix(prefix); });
}

void IntfBacklog::intfIdsByPrefixDel(Ovel::IpGenPrefix prefix) {
   PrefixRecord* record = prefixes_.lookup(prefix);
   if (!record || !record->listed) {
      return;
   }
   record->listed = false;
   record->candidatesClear();
   --listed_[familyIndex(prefix)];
   dropIfUnneeded(prefix, *record);
   notify([&](IntfBacklogNotifiee& n) { n.onIntfIdsByPrefix(prefix); });
}

void IntfBacklog::intfIdsByPrefixDelAll() {
   for (auto it = prefixes_.begin(); it != prefixes_.end(); ++it) {
      intfIdsByPrefixDel(it->first);
   }
}

// Only a map of candidates has an owner to find: a single one is its own.
void IntfBacklog::noteCandidateOwner(PrefixRecord& record) const {
   VOK_ASSERT(record.hasMany, "record.hasMany");
   const IntfNumber number = intfNumbers_->find(record.many->begin()->first.intfId());
   VOK_ASSERT(number != IntfNumbers::kNone, "intfNumbers.find( candidate ) != kNone");
   record.candidateOwner = number;
}

void IntfBacklog::candidateIs(PrefixRecord& record, IntfNumber number, const IntfIdAndAddr& key,
                              const ConnectedRouteProperty& property) {
   if (record.hasMany) {
      record.many->insertOrAssign(key, property);
      noteCandidateOwner(record);
      return;
   }
   const PrefixRecord::SingleCandidate candidate{key.addrWithMask(), property};
   if (record.candidateOwner == PrefixRecord::kNoCandidate) {
      record.singleIs(candidate, number);
      return;
   }
   if (record.candidateOwner == number && record.single.addrWithMask == key.addrWithMask()) {
      record.single.property = property;
      return;
   }
   // A second candidate: both go into a map of their own.
   auto both = std::make_unique<PrefixRecord::ManyCandidates>();
   both->insertOrAssign(IntfIdAndAddr(intfNumbers_->name(record.candidateOwner), record.single.addrWithMask),
                        record.single.property);
   both->insertOrAssign(key, property);
   record.manyIs(std::move(both));
   noteCandidateOwner(record);
}

void IntfBacklog::candidateDel(PrefixRecord& record, const IntfIdAndAddr& key) {
   if (!record.hasMany) {
      if (IntfIdSetView(record, *intfNumbers_).intfIdAndAddr(key)) {
         record.candidatesClear();
      }
      return;
   }
   if (!record.many->erase(key)) {
      return;
   }
   if (record.many->size() > 1) {
      noteCandidateOwner(record);
      return;
   }
   // The last one goes back into the record.
   const auto& [lastKey, lastProperty] = *record.many->begin();
   const IntfNumber number = intfNumbers_->find(lastKey.intfId());
   VOK_ASSERT(number != IntfNumbers::kNone, "intfNumbers.find( candidate ) != kNone");
   record.singleIs(PrefixRecord::SingleCandidate{lastKey.addrWithMask(), lastProperty}, number);
}

void IntfBacklog::candidatesIs(PrefixRecord& record, const IntfIdSet& set) {
   if (set.intfIdAndAddrs() < 2) {
      record.candidatesClear();
      set.forEach([&](const IntfIdSet::Entry& entry) {
         const IntfNumber number = intfNumbers_->find(entry.key.intfId());
         VOK_ASSERT(number != IntfNumbers::kNone, "intfNumbers.find( candidate ) != kNone");
         record.singleIs({entry.key.addrWithMask(), entry.property}, number);
      });
      return;
   }
   auto entries = std::make_unique<PrefixRecord::ManyCandidates>();
   set.forEach([&](const IntfIdSet::Entry& entry) { entries->insertOrAssign(entry.key, entry.property); });
   record.manyIs(std::move(entries));
   noteCandidateOwner(record);
}

bool IntfBacklog::list(const Ovel::IpGenPrefix& prefix, PrefixRecord& record) {
   if (record.listed) {
      return false;
   }
   record.listed = true;
   ++listed_[familyIndex(prefix)];
   return true;
}

void IntfBacklog::dropIfUnneeded(const Ovel::IpGenPrefix& prefix, const PrefixRecord& record) {
   if (!record.needed()) {
      prefixes_.erase(prefix);
   }
}

void IntfBacklog::installedOwnerIs(const Ovel::IpGenPrefix& prefix, IntfNumber owner) {
   installedOwnerIs(*prefixes_.tryEmplace(prefix).first, owner);
}

void IntfBacklog::installedOwnerIs(PrefixRecord& record, IntfNumber owner) {
   VOK_ASSERT(owner != PrefixRecord::kNoOwner, "owner != PrefixRecord::kNoOwner");
   owners_ += record.installedOwner == PrefixRecord::kNoOwner;
   record.installedOwner = owner;
}

void IntfBacklog::installedOwnerDel(Ovel::IpGenPrefix prefix) {
   PrefixRecord* record = prefixes_.lookup(prefix);
   if (!record || record->installedOwner == PrefixRecord::kNoOwner) {
      return;
   }
   record->installedOwner = PrefixRecord::kNoOwner;
   --owners_;
   dropIfUnneeded(prefix, *record);
}

void IntfBacklog::installedOwnerDelAll() {
   if (owners_ == 0) {
      return;
   }
   for (auto it = prefixes_.begin(); it != prefixes_.end(); ++it) {
      installedOwnerDel(it->first);
   }
}

void IntfBacklog::addToIntfIdsByPrefix(const Ovel::IntfId& intfId, const Ovel::IpGenPrefix& prefix,
                                       const Ovel::IpGenAddrWithMask& addr,
                                       Fib::RouteType routeType, Rib::ViaSetKey viaSetKey) {
   VOK_TRACE(intfBacklogTrace(), 8, describe(),
             "intf=" << intfId << " pfx=" << prefix << " addr=" << addr << " type=" << routeType
                     << " viaSetKey=" << viaSetKey);
   ZIPMARK(1, "addToIntfIdsByPrefix", Zipmark::text("vrf=", vrfName_.str()),
           Zipmark::text(" intf=", intfId.name()), Zipmark::text(" pfx=", prefix.toString()),
           Zipmark::text(" addr=", addr.toString()),
           Zipmark::integer(" type=", static_cast<int>(routeType)),
           Zipmark::integer(" viaSetKey=", viaSetKey.value()));
   if (!storable(prefix)) {
      return;
   }
   const IntfNumber number = intfNumbers_->numberOf(intfId);
   PrefixRecord* record = prefixes_.tryEmplace(prefix).first;
   if (list(prefix, *record)) {
      // Watchers hear of the new prefix while its set is still empty.
      notify([&](IntfBacklogNotifiee& n) { n.onIntfIdsByPrefix(prefix); });
      record = prefixes_.lookup(prefix);  // watchers may have changed the map
      VOK_ASSERT(record && record->listed, "intfIdSet");
   }
   candidateIs(*record, number, IntfIdAndAddr(intfId, addr), ConnectedRouteProperty(routeType, viaSetKey));
   doAddBacklog(intfId, prefix);
}

void IntfBacklog::delFromIntfIdsByPrefix(const Ovel::IntfId& intfId,
                                         const Ovel::IpGenPrefix& prefix,
                                         const Ovel::IpGenAddrWithMask& addr) {
   VOK_TRACE(intfBacklogTrace(), 8, describe(),
             "intf=" << intfId << " pfx=" << prefix << " addr=" << addr);
   ZIPMARK(1, "delFromIntfIdsByPrefix", Zipmark::text("vrf=", vrfName_.str()),
           Zipmark::text(" intf=", intfId.name()), Zipmark::text(" pfx=", prefix.toString()),
           Zipmark::text(" addr=", addr.toString()));
   if (!storable(prefix)) {
      return;
   }
   PrefixRecord* record = prefixes_.lookup(prefix);
   VOK_ASSERT(record && record->listed, "intfIdSet");
   candidateDel(*record, IntfIdAndAddr(intfId, addr));
   // The pair is queued before an emptied prefix disappears, so the
   // installer always finds the work for a vanished prefix.
   doAddBacklog(intfId, prefix);
   const auto set = intfIdsByPrefix(prefix);  // watchers of the backlog may have changed it
   if (set && set->intfIdAndAddrs() == 0) {
      intfIdsByPrefixDel(prefix);
   }
}

Vok::Ptr<IntfViaSetKeyStatus> IntfBacklog::keyStatusIs(Vok::Ptr<IntfViaSetKeyStatus>& table,
                                                       Ovel::AddressFamily af, KeyStatusHook hook) {
   if (table && table->addressFamily() == af) {
      return table;  // kept: built for this family
   }
   table = Vok::make<IntfViaSetKeyStatus>(af, intfNumbers_);
   notify([hook](IntfBacklogNotifiee& n) { (n.*hook)(); });
   return table;
}

void IntfBacklog::keyStatusDel(Vok::Ptr<IntfViaSetKeyStatus>& table, KeyStatusHook hook) {
   if (table) {
      table = nullptr;
      notify([hook](IntfBacklogNotifiee& n) { (n.*hook)(); });
   }
}

Vok::Ptr<IntfViaSetKeyStatus> IntfBacklog::intfViaSetKeyStatus4Is(Ovel::AddressFamily af) {
   return keyStatusIs(status4_, af, &IntfBacklogNotifiee::onIntfViaSetKeyStatus4);
}

Vok::Ptr<IntfViaSetKeyStatus> IntfBacklog::intfViaSetKeyStatus6Is(Ovel::AddressFamily af) {
   return keyStatusIs(status6_, af, &IntfBacklogNotifiee::onIntfViaSetKeyStatus6);
}

void IntfBacklog::intfViaSetKeyStatus4Del() {
   keyStatusDel(status4_, &IntfBacklogNotifiee::onIntfViaSetKeyStatus4);
}

void IntfBacklog::intfViaSetKeyStatus6Del() {
   keyStatusDel(status6_, &IntfBacklogNotifiee::onIntfViaSetKeyStatus6);
}

}  // namespace Routing::ConnectedRoute
