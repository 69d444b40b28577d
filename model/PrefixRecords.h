// What the store keeps per prefix, in one map: the prefix's candidate set
// and the number of the interface whose route the installer installed for
// it. Both are read for every entry the installer drains, so one lookup
// finds them together.
//
// A record outlives its candidates while a route is installed (the
// installer still has to delete it), so a record is listed as a candidate
// set only while `listed` holds; IntfIdsByPrefix walks the listed ones.
//
// The store keeps `candidateOwner` in step with the set.
#pragma once

#include <array>
#include <cstdint>
#include <utility>

#include "model/IntfIdSet.h"
#include "model/IntfNumbers.h"
#include "platform/ovel/IpGenPrefix.h"
#include "platform/vok/HashMap.h"

namespace Routing::ConnectedRoute {

struct PrefixRecord {
   static constexpr IntfNumber kNoOwner = IntfNumbers::kNone;
   static constexpr IntfNumber kNoCandidate = IntfNumbers::kLimit;

   IntfIdSet candidates;
   IntfNumber installedOwner = kNoOwner;
   // The number of the first candidate's interface, the owner a drain
   // installs, or kNoCandidate while the set is empty: the drain counts a
   // use of that interface for every route it writes, and finds it here
   // without a lookup by name. It shares a word with `listed`.
   IntfNumber candidateOwner : 31 = kNoCandidate;
   IntfNumber listed : 1 = false;

   bool needed() const noexcept { return listed || installedOwner != kNoOwner; }
   // The candidate set while the record is listed as one, or null.
   const IntfIdSet* listedCandidates() const noexcept { return listed ? &candidates : nullptr; }
};

using PrefixRecords = Vok::HashMap<Ovel::IpGenPrefix, PrefixRecord>;

// How many records are listed as candidate sets: IPv4 ones, then IPv6.
using ListedCounts = std::array<std::size_t, 2>;

// The candidate sets of the listed records, in the map's order.
class IntfIdsByPrefix {
   using Inner = PrefixRecords::const_iterator;

 public:
   using value_type = std::pair<const Ovel::IpGenPrefix&, const IntfIdSet&>;

   class const_iterator {
    public:
      const_iterator() = default;
      value_type operator*() const { return {inner_->first, inner_->second.candidates}; }
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
      explicit const_iterator(Inner inner) : inner_(std::move(inner)) { skipUnlisted(); }
      void skipUnlisted() {
         while (inner_ != Inner() && !inner_->second.listed) {
            ++inner_;
         }
      }
      Inner inner_;
   };

   IntfIdsByPrefix(const PrefixRecords& records, const ListedCounts& listed)
         : records_(records), listed_(listed) {}

   const_iterator begin() const { return const_iterator(records_.begin()); }
   const_iterator end() const { return const_iterator(); }
   std::size_t size() const noexcept { return listed_[0] + listed_[1]; }
   bool empty() const noexcept { return size() == 0; }

 private:
   const PrefixRecords& records_;
   const ListedCounts& listed_;
};

}  // namespace Routing::ConnectedRoute
