// The runtime's hash map: O(1) operations, deterministic iteration order, and
// iterators that stay usable while the map changes under them.
//
// Iteration order is (hash, tieBreak) order of the keys present, the hash as
// placed (placedHash, KeyTraits.h): a function of the set of keys, never of
// insertion history, capacity or the run.
// Iterators remember the key they stand on, so a loop may erase the current
// entry, or any other, and carry on at the next key in order:
//
//   for (auto it = map.begin(); it != map.end(); ++it) {
//      if (done(it->first)) map.erase(it->first);
//   }
//
// A map is one ordered table (OrderedTable.h) until it holds PartSize
// entries; then it splits in two by the top bit of the hash, and each part
// that reaches PartSize entries splits in two again by its next bit. A
// directory indexed by the top bits of a hash finds the part holding it.
// Each part grows by itself, so no insert ever rebuilds more than PartSize
// entries however large the map: a growth inside an event-loop callback
// costs the same at four million entries as at forty thousand. Each part
// holds one range of hashes, and the parts are kept in hash order, so
// walking them one after the other keeps the map's order.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/vok/Assert.h"
#include "platform/vok/OrderedTable.h"

namespace Vok {

template <class K, class V, class Traits = KeyTraits<K>, std::size_t PartSize = 4096>
class HashMap {
   using Table = detail::OrderedTable<K, V, Traits>;
   static_assert(PartSize >= 4, "a part holds a few entries at least");
   // A part whose keys all share this many top hash bits stays whole:
   // hashes that alike are a skewed key set, which more parts would not
   // spread, and the directory stays at most 2^kMaxDepth entries (256 KB).
   static constexpr unsigned kMaxDepth = 16;
   // A promised size (reserve) splits parts down to at most this many
   // entries each, leaving them room to grow before their own split.
   static constexpr std::size_t kReservedPart = PartSize / 4 * 3;

   // The parts in hash order, and the directory from the top `depth` bits
   // of a hash to the index of the part holding it. A part's own depth (the
   // top bits its keys share) is its table's shared hash bits. The tables
   // sit side by side: a lookup reads the directory and its table's header
   // from two small arrays that stay in the caches, and misses only on the
   // table's own lines (its hashes, and the entry asked for beside them).
   struct Parts {
      std::vector<Table> tables;
      std::vector<std::uint32_t> indexes;
      unsigned depth = 0;
      std::size_t size = 0;
   };

 public:
   using key_type = K;
   using mapped_type = V;
   using value_type = std::pair<const K, V>;

 private:
   template <bool Const>
   class Iter {
      using Map = std::conditional_t<Const, const HashMap, HashMap>;
      using Inner = std::conditional_t<Const, typename Table::const_iterator, typename Table::iterator>;
      using Ref = std::conditional_t<Const, const std::pair<const K, V>&, std::pair<const K, V>&>;

    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = std::pair<const K, V>;
      using difference_type = std::ptrdiff_t;
      using reference = Ref;
      using pointer = std::remove_reference_t<Ref>*;

      Iter() = default;
      operator Iter<true>() const {
         Iter<true> converted;
         converted.map_ = map_;
         converted.part_ = part_;
         converted.inner_ = inner_;
         converted.layout_ = layout_;
         return converted;
      }

      Ref operator*() const {
         follow();
         return *inner_;
      }
      pointer operator->() const { return &**this; }

      Iter& operator++() {
         if (layout_ != map_->layout_) {
            *this = map_->after(inner_.hash(), inner_.key());  // the map split, or was emptied
            return *this;
         }
         ++inner_;
         if (inner_.atEnd()) {
            *this = map_->firstFrom(part_ + 1);
         }
         return *this;
      }
      Iter operator++(int) {
         Iter before = *this;
         ++*this;
         return before;
      }
      bool atEnd() const noexcept { return map_ == nullptr; }
      friend bool operator==(const Iter& a, const Iter& b) noexcept {
         if (a.atEnd() || b.atEnd()) {
            return a.atEnd() == b.atEnd();
         }
         return a.inner_.hash() == b.inner_.hash() && a.inner_.key() == b.inner_.key();
      }

    private:
      friend class HashMap;
      template <bool>
      friend class Iter;
      Iter(Map* map, std::size_t part, Inner inner)
            : map_(inner.atEnd() ? nullptr : map), part_(part), inner_(std::move(inner)),
              layout_(map ? map->layout_ : 0) {}

      // After a split the entry lives in another table.
      void follow() const {
         if (layout_ != map_->layout_) {
            const Iter found = map_->findHashed(inner_.key(), inner_.hash());
            VOK_ASSERT(!found.atEnd(), "dereferenced a map iterator whose entry was removed");
            part_ = found.part_;
            inner_ = found.inner_;
            layout_ = found.layout_;
         }
      }

      Map* map_ = nullptr;
      // Where the entry is: refreshed by follow() when the map split.
      mutable std::size_t part_ = 0;
      mutable Inner inner_;
      mutable std::uint32_t layout_ = 0;
   };

 public:
   using iterator = Iter<false>;
   using const_iterator = Iter<true>;

   HashMap() = default;
   HashMap(const HashMap& other) {
      for (const auto& [key, value] : other) {
         tryEmplace(key, value);
      }
   }
   HashMap(HashMap&& other) noexcept { swap(other); }
   HashMap& operator=(HashMap other) noexcept {
      swap(other);
      return *this;
   }

   void swap(HashMap& other) noexcept {
      single_.swap(other.single_);
      std::swap(parts_, other.parts_);
      std::swap(reservedDepth_, other.reservedDepth_);
      std::swap(reservedPerPart_, other.reservedPerPart_);
      ++layout_;
      ++other.layout_;
   }

   std::size_t size() const noexcept { return parts_ ? parts_->size : single_.size(); }
   bool empty() const noexcept { return size() == 0; }

   iterator begin() { return firstFrom(0); }
   iterator end() { return iterator(); }
   const_iterator begin() const { return firstFrom(0); }
   const_iterator end() const { return const_iterator(); }

   // The iterator standing on `key`, or end().
   iterator find(const K& key) { return findHashed(key, Table::hashOf(key)); }
   const_iterator find(const K& key) const { return findHashed(key, Table::hashOf(key)); }
   // The value of `key`, or null: cheaper than find() on hot paths.
   V* lookup(const K& key) {
      const std::uint32_t hash = Table::hashOf(key);
      return tableFor(hash).lookupHashed(key, hash);
   }
   const V* lookup(const K& key) const {
      const std::uint32_t hash = Table::hashOf(key);
      return tableFor(hash).lookupHashed(key, hash);
   }
   bool contains(const K& key) const { return lookup(key) != nullptr; }

   // Inserts key -> V(args...) unless the key is present. Returns the value
   // and whether it was inserted.
   template <class... Args>
   std::pair<V*, bool> tryEmplace(const K& key, Args&&... args) {
      const std::uint32_t hash = Table::hashOf(key);
      if (V* present = tableFor(hash).lookupHashed(key, hash)) {
         return {present, false};
      }
      return {emplaceAbsent(hash, key, std::forward<Args>(args)...), true};
   }

   template <class M>
   std::pair<V*, bool> insertOrAssign(const K& key, M&& value) {
      const std::uint32_t hash = Table::hashOf(key);
      if (V* present = tableFor(hash).lookupHashed(key, hash)) {
         *present = std::forward<M>(value);
         return {present, false};
      }
      return {emplaceAbsent(hash, key, std::forward<M>(value)), true};
   }

   bool erase(const K& key) {
      const std::uint32_t hash = Table::hashOf(key);
      if (!tableFor(hash).eraseHashed(key, hash)) {
         return false;
      }
      if (parts_ && --parts_->size == 0) {
         parts_.reset();  // an emptied map gives its memory back
         ++layout_;
      }
      if (empty()) {
         forgetReservation();
      }
      return true;
   }

   void clear() {
      single_.clear();
      parts_.reset();
      forgetReservation();
      ++layout_;
   }

   // Prepares for about `entries` entries in all, so that a map filled from
   // empty (or grown by much) takes its slots once instead of growing step
   // by step: parts split down to the size that many entries give them, and
   // a part takes its share of slots the next time an entry enters it.
   // Nothing moves here; each insertion prepares only the part it enters,
   // so no operation costs more than a part or two however large the
   // promise. The promise is the latest one given, and an emptied map
   // forgets it. Entries spread over the parts by their hashes, so a part's
   // share is an estimate: a part that gets more grows as usual.
   void reserve(std::size_t entries) {
      unsigned depth = 0;
      while ((entries >> depth) > kReservedPart && depth < kMaxDepth) {
         ++depth;
      }
      reservedDepth_ = depth;
      // A table reserved for n entries takes slots for them at 64 % load;
      // a share takes them at about 71 %, the middle of the 64 to 80 % a
      // growing table swings through, so a filled map costs what a grown
      // one does. Hashes spread a part's count by a few percent, well
      // within the 12 % left before such a part would grow.
      reservedPerPart_ = (entries >> depth) / 10 * 9;
   }

   // The farthest any entry sits from its home slot: the cost of the
   // longest lookup, which stays small whatever the history of the map.
   std::size_t longestProbe() const noexcept {
      if (!parts_) {
         return single_.longestProbe();
      }
      std::size_t longest = 0;
      for (const Table& table : parts_->tables) {
         longest = std::max(longest, table.longestProbe());
      }
      return longest;
   }

   // How many tables hold the map: 1 until it splits.
   std::size_t parts() const noexcept { return parts_ ? parts_->tables.size() : 1; }

 private:
   std::uint32_t partOf(std::uint32_t hash) const noexcept {
      return parts_->indexes[hash >> (32 - parts_->depth)];
   }

   Table& tableFor(std::uint32_t hash) { return parts_ ? parts_->tables[partOf(hash)] : single_; }
   const Table& tableFor(std::uint32_t hash) const {
      return parts_ ? parts_->tables[partOf(hash)] : single_;
   }

   // Inserts `key`, which the map does not hold, splitting its table first
   // where it is full or a promised size asks for more parts. Only a new
   // key splits: a present one may be referred to from inside the map.
   // Kept out of line: the lookup before it is inlined into every caller,
   // and a hot loop that finds its keys present runs faster the shorter it
   // is.
   template <class... Args>
   [[gnu::noinline]] V* emplaceAbsent(std::uint32_t hash, const K& key, Args&&... args) {
      Table& table = tableFor(hash);
      const bool full = table.size() >= PartSize;
      if ((full || table.sharedHashBits() < reservedDepth_) && split(hash, full)) {
         return emplaceAbsent(hash, key, std::forward<Args>(args)...);  // once more, in its half
      }
      if (table.size() < reservedPerPart_) {
         table.reserve(reservedPerPart_);  // the part's share of a promised size
      }
      V* stored = table.emplaceAbsentHashed(hash, key, std::forward<Args>(args)...);
      if (parts_) {
         ++parts_->size;
      }
      return stored;
   }

   // Splits the table holding `hash` in two by its next hash bit. A full
   // table stays whole when its keys are too alike to spread; a promised
   // size splits down to its depth whatever the keys. One half may stay
   // empty (keys that share the next bit), and the full half splits again
   // on the next insert. Entries move once the halves and the directory
   // are allocated.
   bool split(std::uint32_t hash, bool full) {
      const std::uint32_t part = parts_ ? partOf(hash) : 0;
      const unsigned depth = tableFor(hash).sharedHashBits();
      if (depth >= kMaxDepth) {
         return false;
      }
      if (full) {
         // The table is in hash order: its first and last keys share the
         // bits every key shares.
         const auto [firstHash, lastHash] = tableFor(hash).hashRange();
         if (std::countl_zero(firstHash ^ lastHash) >= int{kMaxDepth}) {
            return false;
         }
      }
      const Table& whole = tableFor(hash);
      const std::uint32_t upperBit = 0x80000000u >> depth;
      std::size_t inUpper = 0;
      for (auto it = whole.begin(); it != whole.end(); ++it) {
         inUpper += (it.hash() & upperBit) != 0;
      }
      Table lower, upper;
      lower.sharedHashBitsIs(depth + 1);
      upper.sharedHashBitsIs(depth + 1);
      // Halves that a promised size splits no further take their share now.
      const std::size_t share = depth + 1 >= reservedDepth_ ? reservedPerPart_ : 0;
      lower.reserve(std::max(whole.size() - inUpper, share));
      upper.reserve(std::max(inUpper, share));
      // Where the directory gets one level finer, each entry covers half of
      // what the entry it comes from covered.
      const unsigned oldDepth = parts_ ? parts_->depth : 0;
      const unsigned newDepth = std::max(oldDepth, depth + 1);
      std::vector<std::uint32_t> indexes(std::size_t{1} << newDepth);
      for (std::size_t i = 0; i < indexes.size(); ++i) {
         const std::uint32_t old = parts_ ? parts_->indexes[i >> (newDepth - oldDepth)] : 0;
         const bool upperHalf = old == part && (i >> (newDepth - depth - 1) & 1) != 0;
         indexes[i] = old > part || upperHalf ? old + 1 : old;
      }
      std::unique_ptr<Parts> created;
      if (!parts_) {
         created = std::make_unique<Parts>();
         created->tables.reserve(2);
         created->size = single_.size();
      } else if (parts_->tables.size() == parts_->tables.capacity()) {
         // Room for the new part, allocated last: growing the vector moves
         // the tables, and iterators find theirs again by the layout.
         parts_->tables.reserve(2 * parts_->tables.size());
         ++layout_;
      }

      tableFor(hash).splitInto(upperBit, lower, upper);
      Parts& parts = created ? *created : *parts_;
      if (created) {
         parts.tables.push_back(std::move(lower));
         parts.tables.push_back(std::move(upper));
      } else {
         parts.tables[part] = std::move(lower);
         parts.tables.insert(parts.tables.begin() + part + 1, std::move(upper));
      }
      parts.indexes = std::move(indexes);
      parts.depth = newDepth;
      if (created) {
         single_.clear();
         parts_ = std::move(created);
      }
      ++layout_;
      return true;
   }

   template <class Self>
   static auto firstFrom(Self* self, std::size_t part) {
      using It = std::conditional_t<std::is_const_v<Self>, const_iterator, iterator>;
      if (!self->parts_) {
         return part == 0 ? It(self, 0, self->single_.begin()) : It();
      }
      for (; part < self->parts_->tables.size(); ++part) {
         if (!self->parts_->tables[part].empty()) {
            return It(self, part, self->parts_->tables[part].begin());
         }
      }
      return It();
   }
   iterator firstFrom(std::size_t part) { return firstFrom(this, part); }
   const_iterator firstFrom(std::size_t part) const { return firstFrom(this, part); }

   template <class Self>
   static auto findHashed(Self* self, const K& key, std::uint32_t hash) {
      using It = std::conditional_t<std::is_const_v<Self>, const_iterator, iterator>;
      const std::size_t part = self->parts_ ? self->partOf(hash) : 0;
      return It(self, part, self->tableFor(hash).findHashed(key, hash));
   }
   iterator findHashed(const K& key, std::uint32_t hash) { return findHashed(this, key, hash); }
   const_iterator findHashed(const K& key, std::uint32_t hash) const {
      return findHashed(this, key, hash);
   }

   // The first entry ordered after (hash, key), present or not.
   template <class Self>
   static auto after(Self* self, std::uint32_t hash, const K& key) {
      using It = std::conditional_t<std::is_const_v<Self>, const_iterator, iterator>;
      const std::size_t part = self->parts_ ? self->partOf(hash) : 0;
      It it(self, part, self->tableFor(hash).after(hash, key));
      return it.atEnd() && self->parts_ ? self->firstFrom(part + 1) : it;
   }
   iterator after(std::uint32_t hash, const K& key) { return after(this, hash, key); }
   const_iterator after(std::uint32_t hash, const K& key) const { return after(this, hash, key); }

   void forgetReservation() noexcept {
      reservedDepth_ = 0;
      reservedPerPart_ = 0;
   }

   Table single_;                     // the whole map, until it splits
   std::unique_ptr<Parts> parts_;     // after: the parts, by the top hash bits
   std::uint32_t layout_ = 0;         // counts splits and emptyings, for iterators
   unsigned reservedDepth_ = 0;       // the promised size (reserve): parts this deep,
   std::size_t reservedPerPart_ = 0;  // each with slots for this many entries
};

}  // namespace Vok
