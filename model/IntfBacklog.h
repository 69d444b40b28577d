// The per-VRF store between the interface address machines and the route
// installer.
//
// Address machines record, address by address, which interface carries
// which prefix and what route it asks for; the store keeps the candidates of
// every prefix and queues each (interface, prefix) whose candidates changed
// into the backlog, which the installer drains. A pair already pending is
// queued once, however many changes arrive before the installer gets to it.
// Watchers hear every change synchronously, in the order the operations
// below make them. The store decides nothing about owners.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "model/IntfIdSet.h"
#include "model/IntfNumbers.h"
#include "model/PrefixRecords.h"
#include "model/IntfViaSetKeyStatus.h"
#include "model/ValueRecords.h"
#include "platform/l3/VrfName.h"
#include "platform/vok/Notifier.h"

namespace Routing::ConnectedRoute {

class IntfBacklogNotifiee : public Vok::ReactorBase {
 public:
   virtual void onBacklog(const IntfIdAndPrefix& /*key*/) {}
   virtual void onBacklogEmpty() {}
   virtual void onIntfIdsByPrefix(const Ovel::IpGenPrefix& /*prefix*/) {}
   virtual void onIntfViaSetKeyStatus4() {}
   virtual void onIntfViaSetKeyStatus6() {}
};

// The backlog keeps its entries in the order of their prefixes' hashes,
// which is the order the store's records and the route tables keep their
// rows in: a drain then sweeps all three front to back, where memory is
// read ahead, instead of visiting them at random. Entries of one prefix
// follow each other, by their bytes.
struct BacklogKeyTraits {
   static std::uint32_t hash(const IntfIdAndPrefix& key) noexcept {
      return Vok::KeyTraits<Ovel::IpGenPrefix>::hash(key.genPrefix());
   }
   static std::strong_ordering tieBreak(const IntfIdAndPrefix& a, const IntfIdAndPrefix& b) noexcept {
      return Vok::KeyTraits<IntfIdAndPrefix>::tieBreak(a, b);
   }
};

class IntfBacklog final : public Vok::Notifier<IntfBacklogNotifiee> {
 public:
   using Backlog = Vok::HashMap<IntfIdAndPrefix, bool, BacklogKeyTraits>;
   using IntfIdsByPrefix = ConnectedRoute::IntfIdsByPrefix;

   IntfBacklog(std::string name, L3::VrfName vrfName)
         : name_(std::move(name)), vrfName_(std::move(vrfName)) {}
   ~IntfBacklog() override;

   const std::string& name() const noexcept { return name_; }
   const L3::VrfName& vrfName() const noexcept { return vrfName_; }

   // Candidates, as the address machines hand them over.
   void addToIntfIdsByPrefix(const Ovel::IntfId& intfId, const Ovel::IpGenPrefix& prefix,
                             const Ovel::IpGenAddrWithMask& addr, Fib::RouteType routeType,
                             Rib::ViaSetKey viaSetKey);
   void delFromIntfIdsByPrefix(const Ovel::IntfId& intfId, const Ovel::IpGenPrefix& prefix,
                               const Ovel::IpGenAddrWithMask& addr);
   void doAddBacklog(const Ovel::IntfId& intfId, const Ovel::IpGenPrefix& prefix);

   // Prepares the store and the backlog for about `candidates` more
   // candidates, each its own prefix and backlog entry, so that many
   // machines starting at once do not make them grow step by step.
   void candidatesExpected(std::size_t candidates) {
      if (candidates == 0) {
         return;  // an earlier promise stands: the maps keep only the latest
      }
      prefixes_.reserve(prefixes_.size() + candidates);
      backlog_.reserve(backlog_.size() + candidates);
   }

   // The backlog of pending (interface, prefix) pairs.
   const Backlog& backlog() const noexcept { return backlog_; }
   const bool* backlog(const IntfIdAndPrefix& key) const { return backlog_.lookup(key); }
   // Entries whose value is true: the work the installer has to do.
   std::size_t pendingCount() const noexcept { return backlog_.size() - falseEntries_; }
   void backlogIs(const IntfIdAndPrefix& key, bool value);
   void backlogDel(IntfIdAndPrefix key);
   void backlogDelAll();

   // How many times the installer found the backlog drained.
   std::uint32_t backlogEmpty() const noexcept { return backlogEmpty_; }
   void backlogEmptyInc(std::uint32_t increment);
   void backlogEmptyIs(std::uint32_t value);

   // Candidate sets, one per prefix that some interface address claims.
   IntfIdsByPrefix intfIdsByPrefixes() const noexcept {
      return IntfIdsByPrefix(prefixes_, listed_, *intfNumbers_);
   }
   // The prefix's set, or nothing; valid until the store changes.
   std::optional<IntfIdSetView> intfIdsByPrefix(const Ovel::IpGenPrefix& prefix) const {
      return listedCandidates(prefixes_.lookup(prefix), *intfNumbers_);
   }
   // How many prefixes of the family (IPv4 or IPv6) have candidates: the
   // routes the family's table holds once the backlog is drained.
   std::size_t listedCount(Ovel::AddressFamily af) const noexcept {
      return listed_[familyIndex(af)];
   }
   // Stores `set` as the prefix's candidates; watchers hear of it unless the
   // prefix already had these very entries.
   void intfIdsByPrefixIs(const Ovel::IpGenPrefix& prefix, const IntfIdSet& set);
   void intfIdsByPrefixDel(Ovel::IpGenPrefix prefix);
   void intfIdsByPrefixDelAll();

   // The installer's record of who owns the prefix's installed route: the
   // owner's number in intfNumbers(), kept beside the candidates so that one
   // lookup finds both. Nobody is notified of it.
   IntfNumber installedOwner(const Ovel::IpGenPrefix& prefix) const {
      const PrefixRecord* record = prefixes_.lookup(prefix);
      return record ? record->installedOwner : PrefixRecord::kNoOwner;
   }
   void installedOwnerIs(const Ovel::IpGenPrefix& prefix, IntfNumber owner);
   // The prefix's record, or null: the drain reads the candidates and
   // records the owner through one lookup. Valid until the store's own
   // mutators next run.
   PrefixRecord* prefixRecord(const Ovel::IpGenPrefix& prefix) { return prefixes_.lookup(prefix); }
   const PrefixRecord* prefixRecord(const Ovel::IpGenPrefix& prefix) const { return prefixes_.lookup(prefix); }
   void installedOwnerIs(PrefixRecord& record, IntfNumber owner);
   void installedOwnerDel(Ovel::IpGenPrefix prefix);
   void installedOwnerDelAll();
   std::size_t installedOwnerCount() const noexcept { return owners_; }
   // The VRF's interface numbers, shared by both via-set-key tables: an
   // installed owner is one of them.
   IntfNumbers& intfNumbers() noexcept { return *intfNumbers_; }
   const IntfNumbers& intfNumbers() const noexcept { return *intfNumbers_; }

   // The per-family via-set-key tables.
   const Vok::Ptr<IntfViaSetKeyStatus>& intfViaSetKeyStatus4() const noexcept { return status4_; }
   const Vok::Ptr<IntfViaSetKeyStatus>& intfViaSetKeyStatus6() const noexcept { return status6_; }
   Vok::Ptr<IntfViaSetKeyStatus> intfViaSetKeyStatus4Is(Ovel::AddressFamily af);
   Vok::Ptr<IntfViaSetKeyStatus> intfViaSetKeyStatus6Is(Ovel::AddressFamily af);
   void intfViaSetKeyStatus4Del();
   void intfViaSetKeyStatus6Del();

 private:
   using KeyStatusHook = void (IntfBacklogNotifiee::*)();
   Vok::Ptr<IntfViaSetKeyStatus> keyStatusIs(Vok::Ptr<IntfViaSetKeyStatus>& table,
                                             Ovel::AddressFamily af, KeyStatusHook hook);
   void keyStatusDel(Vok::Ptr<IntfViaSetKeyStatus>& table, KeyStatusHook hook);
   std::string describe() const { return vrfName_.str(); }
   // Sets the record's candidateOwner from its set's first entry.
   void noteCandidateOwner(PrefixRecord& record) const;
   // Adds the candidate `key`, whose interface is numbered `number`, or
   // writes its route over the one it has.
   void candidateIs(PrefixRecord& record, IntfNumber number, const IntfIdAndAddr& key,
                    const ConnectedRouteProperty& property);
   void candidateDel(PrefixRecord& record, const IntfIdAndAddr& key);
   // Stores `set` as the record's candidates.
   void candidatesIs(PrefixRecord& record, const IntfIdSet& set);

   std::string name_;
   L3::VrfName vrfName_;
   Backlog backlog_;
   std::size_t falseEntries_ = 0;  // only the generic setter stores false
   std::uint32_t backlogEmpty_ = 0;
   // Lists the prefix's record as a candidate set; false if it already was.
   bool list(const Ovel::IpGenPrefix& prefix, PrefixRecord& record);
   // Only IPv4 and IPv6 prefixes are stored: IPv4 counts at 0, IPv6 at 1.
   static std::size_t familyIndex(Ovel::AddressFamily af) noexcept {
      return af == Ovel::AddressFamily::ipv6;
   }
   static std::size_t familyIndex(const Ovel::IpGenPrefix& prefix) noexcept {
      return familyIndex(prefix.af());
   }
   // Drops a record nobody needs any more.
   void dropIfUnneeded(const Ovel::IpGenPrefix& prefix, const PrefixRecord& record);

   PrefixRecords prefixes_;
   ListedCounts listed_{};  // records holding a candidate set, by family
   std::size_t owners_ = 0;  // records holding an installed owner
   std::shared_ptr<IntfNumbers> intfNumbers_ = std::make_shared<IntfNumbers>();
   Vok::Ptr<IntfViaSetKeyStatus> status4_;
   Vok::Ptr<IntfViaSetKeyStatus> status6_;
};

Vok::Ptr<IntfBacklog> intfBacklogFactory(std::string name, L3::VrfName vrfName);

}  // namespace Routing::ConnectedRoute
