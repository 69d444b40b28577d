// The runtime's hash map: O(1) operations, deterministic iteration order, and
// iterators that stay usable while the map changes under them.
//
// Iteration order is (hash, tieBreak) order of the keys present: a function
// of the set of keys, never of insertion history, capacity or the run.
// Iterators remember the key they stand on, so a loop may erase the current
// entry, or any other, and carry on at the next key in order:
//
//   for (auto it = map.begin(); it != map.end(); ++it) {
//      if (done(it->first)) map.erase(it->first);
//   }
//
// A map is one ordered table (OrderedTable.h) until it holds SplitSize
// entries; then it splits, once, into 256 tables by the top eight bits of
// the hash. Each grows by itself, so no single insert ever rebuilds more than
// a 256th of a large map: a table that grows inside an event-loop callback
// costs about a millisecond for every million entries of the whole map,
// instead of stalling the loop for the whole of it. The tables are ordered
// by those top bits, so walking them one after the other keeps the map's
// order.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include "platform/vok/Assert.h"
#include "platform/vok/OrderedTable.h"

namespace Vok {

template <class K, class V, class Traits = KeyTraits<K>, std::size_t SplitSize = (std::size_t{1} << 15)>
class HashMap {
   using Table = detail::OrderedTable<K, V, Traits>;
   static constexpr unsigned kShardBits = 8;
   static constexpr std::size_t kShards = std::size_t{1} << kShardBits;

   struct Shards {
      std::array<Table, kShards> tables;
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
         converted.shard_ = shard_;
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
            *this = map_->after(inner_.hash(), inner_.key());  // the map split or joined
            return *this;
         }
         ++inner_;
         if (inner_.atEnd()) {
            *this = map_->firstFrom(shard_ + 1);
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
      Iter(Map* map, std::size_t shard, Inner inner)
            : map_(inner.atEnd() ? nullptr : map), shard_(shard), inner_(std::move(inner)),
              layout_(map ? map->layout_ : 0) {}

      // After a split or join the entry lives in another table.
      void follow() const {
         if (layout_ != map_->layout_) {
            const Iter found = map_->findHashed(inner_.key(), inner_.hash());
            VOK_ASSERT(!found.atEnd(), "dereferenced a map iterator whose entry was removed");
            shard_ = found.shard_;
            inner_ = found.inner_;
            layout_ = found.layout_;
         }
      }

      Map* map_ = nullptr;
      // Where the entry is: refreshed by follow() when the map split or joined.
      mutable std::size_t shard_ = 0;
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
      std::swap(shards_, other.shards_);
      ++layout_;
      ++other.layout_;
   }

   std::size_t size() const noexcept { return shards_ ? shards_->size : single_.size(); }
   bool empty() const noexcept { return size() == 0; }

   iterator begin() { return firstFrom(0); }
   iterator end() { return iterator(); }
   const_iterator begin() const { return firstFrom(0); }
   const_iterator end() const { return const_iterator(); }

   // The iterator standing on `key`, or end().
   iterator find(const K& key) { return findHashed(key, Traits::hash(key)); }
   const_iterator find(const K& key) const { return findHashed(key, Traits::hash(key)); }
   // The value of `key`, or null: cheaper than find() on hot paths.
   V* lookup(const K& key) {
      const std::uint32_t hash = Traits::hash(key);
      return tableFor(hash).lookupHashed(key, hash);
   }
   const V* lookup(const K& key) const {
      const std::uint32_t hash = Traits::hash(key);
      return tableFor(hash).lookupHashed(key, hash);
   }
   bool contains(const K& key) const { return lookup(key) != nullptr; }

   // Inserts key -> V(args...) unless the key is present. Returns the value
   // and whether it was inserted.
   template <class... Args>
   std::pair<V*, bool> tryEmplace(const K& key, Args&&... args) {
      const std::uint32_t hash = Traits::hash(key);
      if (!shards_ && single_.size() >= SplitSize) {
         // Only a new key splits: `key` may refer into the map itself.
         if (V* existing = single_.lookupHashed(key, hash)) {
            return {existing, false};
         }
         split();
      }
      auto result = tableFor(hash).tryEmplaceHashed(hash, key, std::forward<Args>(args)...);
      if (result.second && shards_) {
         ++shards_->size;
      }
      return result;
   }

   template <class M>
   std::pair<V*, bool> insertOrAssign(const K& key, M&& value) {
      auto [stored, inserted] = tryEmplace(key, std::forward<M>(value));
      if (!inserted) {
         *stored = std::forward<M>(value);
      }
      return {stored, inserted};
   }

   bool erase(const K& key) {
      const std::uint32_t hash = Traits::hash(key);
      if (!tableFor(hash).eraseHashed(key, hash)) {
         return false;
      }
      if (shards_ && --shards_->size == 0) {
         shards_.reset();  // an emptied map gives its memory back
         ++layout_;
      }
      return true;
   }

   void clear() {
      single_.clear();
      shards_.reset();
      ++layout_;
   }

   // The farthest any entry sits from its home slot: the cost of the
   // longest lookup, which stays small whatever the history of the map.
   std::size_t longestProbe() const noexcept {
      if (!shards_) {
         return single_.longestProbe();
      }
      std::size_t longest = 0;
      for (const Table& table : shards_->tables) {
         longest = std::max(longest, table.longestProbe());
      }
      return longest;
   }

 private:
   static std::size_t shardOf(std::uint32_t hash) noexcept { return hash >> (32 - kShardBits); }

   Table& tableFor(std::uint32_t hash) { return shards_ ? shards_->tables[shardOf(hash)] : single_; }
   const Table& tableFor(std::uint32_t hash) const {
      return shards_ ? shards_->tables[shardOf(hash)] : single_;
   }

   // Entries move to their shards in order, each shard's share built as
   // sorted insertion builds it: the one step that touches the whole map,
   // taken once, while the map is still SplitSize entries small.
   void split() {
      auto shards = std::make_unique<Shards>();
      for (Table& table : shards->tables) {
         table.sharedHashBitsIs(kShardBits);
      }
      for (auto it = single_.begin(); it != single_.end(); ++it) {
         shards->tables[shardOf(it.hash())].tryEmplaceHashed(it.hash(), it->first,
                                                             std::move(it->second));
      }
      shards->size = single_.size();
      single_.clear();
      shards_ = std::move(shards);
      ++layout_;
   }

   template <class Self>
   static auto firstFrom(Self* self, std::size_t shard) {
      using It = std::conditional_t<std::is_const_v<Self>, const_iterator, iterator>;
      if (!self->shards_) {
         return shard == 0 ? It(self, 0, self->single_.begin()) : It();
      }
      for (; shard < kShards; ++shard) {
         if (!self->shards_->tables[shard].empty()) {
            return It(self, shard, self->shards_->tables[shard].begin());
         }
      }
      return It();
   }
   iterator firstFrom(std::size_t shard) { return firstFrom(this, shard); }
   const_iterator firstFrom(std::size_t shard) const { return firstFrom(this, shard); }

   template <class Self>
   static auto findHashed(Self* self, const K& key, std::uint32_t hash) {
      using It = std::conditional_t<std::is_const_v<Self>, const_iterator, iterator>;
      const std::size_t shard = self->shards_ ? shardOf(hash) : 0;
      return It(self, shard, self->tableFor(hash).findHashed(key, hash));
   }
   iterator findHashed(const K& key, std::uint32_t hash) { return findHashed(this, key, hash); }
   const_iterator findHashed(const K& key, std::uint32_t hash) const {
      return findHashed(this, key, hash);
   }

   // The first entry ordered after (hash, key), present or not.
   template <class Self>
   static auto after(Self* self, std::uint32_t hash, const K& key) {
      using It = std::conditional_t<std::is_const_v<Self>, const_iterator, iterator>;
      const std::size_t shard = self->shards_ ? shardOf(hash) : 0;
      It it(self, shard, self->tableFor(hash).after(hash, key));
      return it.atEnd() && self->shards_ ? self->firstFrom(shard + 1) : it;
   }
   iterator after(std::uint32_t hash, const K& key) { return after(this, hash, key); }
   const_iterator after(std::uint32_t hash, const K& key) const { return after(this, hash, key); }

   Table single_;                     // the whole map, until it splits
   std::unique_ptr<Shards> shards_;   // after: the tables by the top hash bits
   std::uint32_t layout_ = 0;         // counts splits and joins, for iterators
};

}  // namespace Vok
