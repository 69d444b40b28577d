// What the store keeps per prefix, in one map: the prefix's candidate set
// and the number of the interface whose route the installer installed for
// it. Both are read for every entry the installer drains, so one lookup
// finds them together.
//
// A record outlives its candidates while a route is installed (the
// installer still has to delete it), so a record is listed as a candidate
// set only while `listed` holds; IntfIdsByPrefix walks the listed ones.
//
// Nearly every prefix has one candidate, so a record keeps that one as its
// address and route alone: its interface is `candidateOwner`, a number the
// record keeps anyway, which saves a 24-byte name in every record (a record
// and its prefix fill 64 bytes instead of 96). From the second candidate
// on, the set is a map of its own keyed by the whole entry, whose order
// gives the owner; the map gives its last entry back to the record. The
// store keeps `candidateOwner` in step with the set; IntfIdSetView reads
// the set as an IntfIdSet would.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "model/IntfIdSet.h"
#include "model/IntfNumbers.h"
#include "platform/ovel/IpGenPrefix.h"
#include "platform/vok/HashMap.h"

namespace Routing::ConnectedRoute {

struct PrefixRecord {
   static constexpr IntfNumber kNoOwner = IntfNumbers::kNone;
   static constexpr IntfNumber kNoCandidate = IntfNumbers::kLimit;

   // The one candidate, without its interface: `candidateOwner` names it.
   struct SingleCandidate {
      Ovel::IpGenAddrWithMask addrWithMask;
      ConnectedRouteProperty property;
   };
   using ManyCandidates = IntfIdSet::Entries;

   PrefixRecord() noexcept : single() {}
   PrefixRecord(PrefixRecord&& other) noexcept { take(other); }
   PrefixRecord& operator=(PrefixRecord&& other) noexcept {
      if (this != &other) {
         releaseMany();
         take(other);
      }
      return *this;
   }
   ~PrefixRecord() { releaseMany(); }

   IntfNumber installedOwner = kNoOwner;
   // The number of the first candidate's interface, the owner a drain
   // installs, or kNoCandidate while the set is empty: the drain counts a
   // use of that interface for every route it writes, and finds it here
   // without a lookup by name.
   IntfNumber candidateOwner : 30 = kNoCandidate;
   IntfNumber listed : 1 = false;
   IntfNumber hasMany : 1 = false;  // the candidates are in `many`, else in `single` if any

   bool needed() const noexcept { return listed || installedOwner != kNoOwner; }
   std::size_t candidateCount() const noexcept {
      return hasMany ? many->size() : candidateOwner != kNoCandidate;
   }
   // The route the first candidate asks for; the set must not be empty.
   const ConnectedRouteProperty& ownerProperty() const noexcept {
      return hasMany ? many->begin()->second : single.property;
   }

   // The record's one candidate, its interface numbered `owner`.
   void singleIs(const SingleCandidate& candidate, IntfNumber owner) noexcept {
      releaseMany();
      single = candidate;
      candidateOwner = owner;
   }
   // Candidates that are two or more; the store notes their owner.
   void manyIs(std::unique_ptr<ManyCandidates> entries) noexcept {
      releaseMany();
      many = entries.release();
      hasMany = true;
   }
   void candidatesClear() noexcept {
      releaseMany();
      candidateOwner = kNoCandidate;
   }

   union {
      SingleCandidate single;
      ManyCandidates* many;
   };

 private:
   void releaseMany() noexcept {
      if (hasMany) {
         delete many;
         single = SingleCandidate();  // the member in use again
         hasMany = false;
      }
   }
   void take(PrefixRecord& other) noexcept {
      installedOwner = other.installedOwner;
      candidateOwner = other.candidateOwner;
      listed = other.listed;
      hasMany = other.hasMany;
      if (hasMany) {
         many = other.many;
         other.single = SingleCandidate();  // the map is this record's now
         other.hasMany = false;
         other.candidateOwner = kNoCandidate;
      } else {
         single = other.single;
      }
   }
};

// A record's candidate set as the store's readers see it, with the API of
// an IntfIdSet: entries are handed out as copies, the single one's
// interface named by the VRF's numbers. Valid while the record is.
class IntfIdSetView {
 public:
   using Entry = IntfIdSet::Entry;

   IntfIdSetView(const PrefixRecord& record, const IntfNumbers& numbers) noexcept
         : record_(&record), numbers_(&numbers) {}

   std::size_t intfIdAndAddrs() const noexcept { return record_->candidateCount(); }
   const ConnectedRouteProperty* intfIdAndAddr(const IntfIdAndAddr& key) const {
      if (record_->hasMany) {
         return record_->many->lookup(key);
      }
      return isSingle(key) ? &record_->single.property : nullptr;
   }
   // The first entry in the set's order: the prefix's owner.
   std::optional<Entry> first() const {
      if (record_->hasMany) {
         const auto& [key, property] = *record_->many->begin();
         return Entry{key, property};
      }
      if (record_->candidateOwner == PrefixRecord::kNoCandidate) {
         return std::nullopt;
      }
      return singleEntry();
   }
   // Every entry, in the set's order.
   template <class Fn>
   void forEach(Fn&& visit) const {
      if (record_->hasMany) {
         for (const auto& [key, property] : *record_->many) {
            visit(Entry{key, property});
         }
      } else if (record_->candidateOwner != PrefixRecord::kNoCandidate) {
         visit(singleEntry());
      }
   }
   // The same entries, as a set of their own.
   IntfIdSet set() const {
      IntfIdSet copy;
      forEach([&](const Entry& entry) { copy.intfIdAndAddrIs(entry.key, entry.property); });
      return copy;
   }
   // The same entries with the same routes. Only the generic setter and
   // the tests compare: a copy costs nothing that matters there.
   friend bool operator==(const IntfIdSetView& a, const IntfIdSet& b) { return a.set() == b; }
   friend bool operator==(const IntfIdSetView& a, const IntfIdSetView& b) { return a == b.set(); }

 private:
   bool isSingle(const IntfIdAndAddr& key) const {
      return record_->candidateOwner != PrefixRecord::kNoCandidate &&
             key.addrWithMask() == record_->single.addrWithMask &&
             key.intfId() == numbers_->name(record_->candidateOwner);
   }
   Entry singleEntry() const {
      return Entry{IntfIdAndAddr(numbers_->name(record_->candidateOwner), record_->single.addrWithMask),
                   record_->single.property};
   }

   const PrefixRecord* record_;
   const IntfNumbers* numbers_;
};

using PrefixRecords = Vok::HashMap<Ovel::IpGenPrefix, PrefixRecord>;

// How many records are listed as candidate sets: IPv4 ones, then IPv6.
using ListedCounts = std::array<std::size_t, 2>;

// The candidate sets of the listed records, in the map's order.
class IntfIdsByPrefix {
   using Inner = PrefixRecords::const_iterator;

 public:
   using value_type = std::pair<const Ovel::IpGenPrefix&, IntfIdSetView>;

   class const_iterator {
    public:
      const_iterator() = default;
      value_type operator*() const { return {inner_->first, IntfIdSetView(inner_->second, *numbers_)}; }
      // Only `->first` and `->second` are offered, as on a map's iterator.
      struct Arrow {
         value_type pair;
         const value_type* operator->() const noexcept { return &pair; }
      };
      Arrow operator->() const { return Arrow{**this}; }
      const_iterator& operator++() {
         ++inner_;
         skipUnlisted();
         return *this;
      }
      friend bool operator==(const const_iterator& a, const const_iterator& b) {
         return a.inner_ == b.inner_;
      }

    private:
      friend class IntfIdsByPrefix;
      const_iterator(Inner inner, const IntfNumbers& numbers) : inner_(std::move(inner)), numbers_(&numbers) {
         skipUnlisted();
      }
      void skipUnlisted() {
         while (inner_ != Inner() && !inner_->second.listed) {
            ++inner_;
         }
      }
      Inner inner_;
      const IntfNumbers* numbers_ = nullptr;
   };

   IntfIdsByPrefix(const PrefixRecords& records, const ListedCounts& listed, const IntfNumbers& numbers)
         : records_(records), listed_(listed), numbers_(numbers) {}

   const_iterator begin() const { return const_iterator(records_.begin(), numbers_); }
   const_iterator end() const { return const_iterator(); }
   std::size_t size() const noexcept { return listed_[0] + listed_[1]; }
   bool empty() const noexcept { return size() == 0; }

 private:
   const PrefixRecords& records_;
   const ListedCounts& listed_;
   const IntfNumbers& numbers_;
};

// The record's candidate set while it is listed as one, or nothing.
inline std::optional<IntfIdSetView> listedCandidates(const PrefixRecord* record, const IntfNumbers& numbers) {
   if (!record || !record->listed) {
      return std::nullopt;
   }
   return IntfIdSetView(*record, numbers);
}

}  // namespace Routing::ConnectedRoute
