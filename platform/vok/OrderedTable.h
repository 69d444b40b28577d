// One table of the runtime's hash map (HashMap.h): O(1) operations, an
// iteration order that depends on the keys present only, and iterators that
// stay usable while the table changes under them.
//
// Layout is an ordered linear-probing table: a key's home slot is its hash
// scaled to the table (monotone in the hash), and every cluster is kept
// sorted by (hash, tieBreak). The table is then exactly the one that
// inserting the keys in sorted order would build, so iteration order is
// (hash, tieBreak) order: a function of the set of keys present, never of
// insertion history, capacity or the run. Keys that would run off the end
// spill into a tail instead of wrapping around, which keeps that order
// global.
//
// Iterators remember the key they stand on. When the table changed since
// (the entry moved or left), ++ continues at the first key ordered after it.
//
// A table may hold the keys of one part of a larger map: their hashes then
// share their top bits, and the home slot scales the bits below them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "platform/vok/Assert.h"
#include "platform/vok/KeyTraits.h"

namespace Vok {

namespace detail {

// One ordered linear-probing table: a whole HashMap, or one part of a large
// one, holding the keys whose hashes start with the part's top bits.
template <class K, class V, class Traits>
class OrderedTable {
 public:
   using key_type = K;
   using mapped_type = V;
   using value_type = std::pair<const K, V>;

 private:
   static constexpr std::size_t npos = static_cast<std::size_t>(-1);
   // The hash of a free slot, which no placed hash reaches.
   static constexpr std::uint32_t kFree = 0xFFFFFFFF;
   static_assert(placedHash(kFree) < kFree);

   template <bool Const>
   class Iter {
      using Map = std::conditional_t<Const, const OrderedTable, OrderedTable>;
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
         converted.slot_ = slot_;
         converted.hash_ = hash_;
         converted.key_ = key_;
         return converted;
      }

      Ref operator*() const { return map_->entryAt(map_->relocate(slot_, hash_, key())); }
      pointer operator->() const { return &**this; }

      Iter& operator++() {
         moveTo(map_->slotAfter(slot_, hash_, key()));
         return *this;
      }
      Iter operator++(int) {
         Iter before = *this;
         ++*this;
         return before;
      }
      bool atEnd() const noexcept { return slot_ == npos; }
      // The entry the iterator stands on, or stood on if it left.
      std::uint32_t hash() const noexcept { return hash_; }
      const K& key() const { return *key_; }
      friend bool operator==(const Iter& a, const Iter& b) noexcept {
         if (a.atEnd() || b.atEnd()) {
            return a.atEnd() == b.atEnd();
         }
         return a.hash_ == b.hash_ && a.key() == b.key();
      }

    private:
      friend class OrderedTable;
      template <bool>
      friend class Iter;
      Iter(Map* map, std::size_t slot) : map_(map) { moveTo(slot); }

      void moveTo(std::size_t slot) {
         slot_ = slot;
         if (slot != npos) {
            hash_ = map_->hashAt(slot);
            key_.reset();
            key_.emplace(map_->entryAt(slot).first);
         }
      }

      Map* map_ = nullptr;
      std::size_t slot_ = npos;
      std::uint32_t hash_ = 0;
      std::optional<K> key_;
   };

 public:
   using iterator = Iter<false>;
   using const_iterator = Iter<true>;

   OrderedTable() = default;
   OrderedTable(const OrderedTable& other) : shift_(other.shift_) {
      for (const auto& [key, value] : other) {
         tryEmplace(key, value);
      }
   }
   OrderedTable(OrderedTable&& other) noexcept { swap(other); }
   OrderedTable& operator=(OrderedTable other) noexcept {
      swap(other);
      return *this;
   }
   ~OrderedTable() { release(); }

   void swap(OrderedTable& other) noexcept {
      std::swap(block_, other.block_);
      std::swap(capacity_, other.capacity_);
      std::swap(length_, other.length_);
      std::swap(size_, other.size_);
      std::swap(shift_, other.shift_);
      std::swap(last_, other.last_);
      std::swap(lastHash_, other.lastHash_);
   }

   std::size_t size() const noexcept { return size_; }
   bool empty() const noexcept { return size_ == 0; }
   // Home slots for `entries` at the load a growth leaves: for building a
   // table whose size is known without the growths on the way.
   void reserve(std::size_t entries) {
      const std::size_t capacity = entries + entries / 2 + entries / 16;  // about 64 % load
      if (capacity > capacity_) {
         rehash(capacity);
      }
   }
   // Moves every entry into `lower` or `upper` by one bit of its hash,
   // keeping order. Both are empty and sized with reserve(); as in a
   // growth, each entry goes to its home slot or just after the entry before
   // it, without the search an insertion makes.
   void splitInto(std::uint32_t upperBit, OrderedTable& lower, OrderedTable& upper);
   // The hashes of the first and last entries; the table must not be empty.
   std::pair<std::uint32_t, std::uint32_t> hashRange() const {
      VOK_ASSERT(size_ != 0, "hashRange of an empty table");
      return {hashAt(firstUsedFrom(0)), lastHash_};
   }

   iterator begin() { return iterator(this, firstUsedFrom(0)); }
   iterator end() { return iterator(); }
   const_iterator begin() const { return const_iterator(this, firstUsedFrom(0)); }
   const_iterator end() const { return const_iterator(); }

   // Inserts key -> V(args...) unless the key is present. Returns the value
   // and whether it was inserted.
   template <class... Args>
   std::pair<V*, bool> tryEmplace(const K& key, Args&&... args) {
      return tryEmplaceHashed(hashOf(key), key, std::forward<Args>(args)...);
   }

   // The hash a key is placed and ordered by (placedHash, KeyTraits.h).
   static std::uint32_t hashOf(const K& key) noexcept { return placedHash(Traits::hash(key)); }

   // The same, given the key's hash (hashOf(key)) already computed.
   iterator findHashed(const K& key, std::uint32_t hash) { return iterator(this, findSlot(key, hash)); }
   const_iterator findHashed(const K& key, std::uint32_t hash) const {
      return const_iterator(this, findSlot(key, hash));
   }
   V* lookupHashed(const K& key, std::uint32_t hash) {
      std::size_t slot = findSlot(key, hash);
      return slot == npos ? nullptr : &entryAt(slot).second;
   }
   const V* lookupHashed(const K& key, std::uint32_t hash) const {
      return const_cast<OrderedTable*>(this)->lookupHashed(key, hash);
   }
   template <class... Args>
   std::pair<V*, bool> tryEmplaceHashed(std::uint32_t hash, const K& key, Args&&... args) {
      if (std::size_t slot = findSlot(key, hash); slot != npos) {
         return {&entryAt(slot).second, false};
      }
      return {emplaceAbsentHashed(hash, key, std::forward<Args>(args)...), true};
   }
   // Inserts key -> V(args...), given that the table does not hold the key.
   template <class... Args>
   V* emplaceAbsentHashed(std::uint32_t hash, const K& key, Args&&... args) {
      return &entryAt(insertSlot(key, hash, std::forward<Args>(args)...)).second;
   }
   bool eraseHashed(const K& key, std::uint32_t hash) {
      std::size_t slot = findSlot(key, hash);
      if (slot == npos) {
         return false;
      }
      eraseSlot(slot);
      maybeShrink();
      return true;
   }

   void clear() {
      release();
      const std::uint8_t shift = shift_;
      *this = OrderedTable();
      shift_ = shift;
   }
   // Keys of this table share their top `bits` hash bits (a part's).
   void sharedHashBitsIs(unsigned bits) noexcept { shift_ = static_cast<std::uint8_t>(bits); }
   unsigned sharedHashBits() const noexcept { return shift_; }

   // The first entry ordered after (hash, key), present or not.
   iterator after(std::uint32_t hash, const K& key) {
      return iterator(this, slotAfter(npos, hash, key));
   }
   const_iterator after(std::uint32_t hash, const K& key) const {
      return const_iterator(this, slotAfter(npos, hash, key));
   }

   // The farthest any entry sits from its home slot: the cost of the
   // longest lookup, which stays small whatever the history of the map.
   std::size_t longestProbe() const noexcept {
      std::size_t longest = 0;
      for (std::size_t i = 0; i < length_; ++i) {
         if (usedAt(i)) {
            longest = std::max(longest, i - home(hashAt(i)));
         }
      }
      return longest;
   }

private:
   // Home slot: the hash scaled to [0, capacity), monotone in the hash, so
   // slot order is hash order whatever the capacity.
   std::size_t home(std::uint32_t hash) const noexcept {
      const std::uint32_t within = hash << shift_;  // the bits a part's hashes differ in
      return static_cast<std::size_t>((std::uint64_t{within} * capacity_) >> 32);
   }

   // One block holding two arrays of length_: the entries, then their
   // hashes, kFree in a free slot. A probe reads the dense hashes (sixteen
   // to a cache line) and touches an entry only where the hash matches, so
   // a key displaced from home costs no more entry lines than one at home.
   struct Slot {
      alignas(value_type) std::byte storage[sizeof(value_type)];
      value_type& entry() noexcept { return *std::launder(reinterpret_cast<value_type*>(storage)); }
   };
   static_assert(alignof(value_type) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__,
                 "slots are allocated with the default alignment");
   static constexpr std::size_t hashesOffset(std::size_t length) noexcept {
      return (length * sizeof(Slot) + alignof(std::uint32_t) - 1) / alignof(std::uint32_t) *
             alignof(std::uint32_t);
   }
   Slot* slots() const noexcept { return reinterpret_cast<Slot*>(block_); }
   std::uint32_t* hashes() const noexcept {
      return reinterpret_cast<std::uint32_t*>(block_ + hashesOffset(length_));
   }
   // Keys and values that are plain bytes (the routing tables' records) can
   // be moved between slots by copying the slots' bytes. The pair itself is
   // not trivially copyable (its assignments are user-provided), but its
   // copy and destruction are trivial then, and that is all a move between
   // slots uses.
   static constexpr bool kBytewise = std::is_trivially_copyable_v<K> &&
                                     std::is_trivially_copyable_v<V> &&
                                     std::is_trivially_copy_constructible_v<value_type> &&
                                     std::is_trivially_destructible_v<value_type>;
   // Where an entry is about to be built.
   value_type* placeAt(std::size_t slot) const noexcept {
      return reinterpret_cast<value_type*>(slots()[slot].storage);
   }
   value_type& entryAt(std::size_t slot) const noexcept { return slots()[slot].entry(); }
   std::uint32_t& hashAt(std::size_t slot) const noexcept { return hashes()[slot]; }
   bool usedAt(std::size_t slot) const noexcept { return hashAt(slot) != kFree; }

   // Does the entry in `slot` order before (hash, key)?
   bool before(std::size_t slot, std::uint32_t hash, const K& key) const {
      const std::uint32_t h = hashAt(slot);
      return h != hash ? h < hash : Traits::tieBreak(entryAt(slot).first, key) < 0;
   }

   bool holds(std::size_t slot, std::uint32_t hash, const K& key) const {
      return slot < length_ && usedAt(slot) && hashAt(slot) == hash &&
             entryAt(slot).first == key;
   }

   std::size_t findSlot(const K& key, std::uint32_t hash) const {
      if (ordersLast(hash)) {
         return npos;
      }
      // The entry at home is asked for while the hashes are read: most
      // keys sit there or just after, so its line arrives with theirs
      // instead of after them. Clusters are sorted, and a free slot's kFree
      // orders after every key: the first hash above the key's says it is
      // absent.
      const std::size_t start = home(hash);
      __builtin_prefetch(slots() + start);
      const std::uint32_t* hashed = hashes();
      for (std::size_t i = start; i < length_ && hashed[i] <= hash; ++i) {
         if (hashed[i] == hash) {
            const K& present = entryAt(i).first;
            if (present == key) {
               return i;
            }
            if (Traits::tieBreak(present, key) > 0) {
               return npos;
            }
         }
      }
      return npos;
   }

   std::size_t firstUsedFrom(std::size_t slot) const {
      const std::uint32_t* hashed = hashes();
      while (slot < length_ && hashed[slot] == kFree) {
         ++slot;
      }
      return slot < length_ ? slot : npos;
   }

   // Slot of the first entry ordered after (hash, key), whether or not that
   // key is still present at `slot`.
   std::size_t slotAfter(std::size_t slot, std::uint32_t hash, const K& key) const {
      if (holds(slot, hash, key)) {
         return firstUsedFrom(slot + 1);
      }
      for (std::size_t i = std::min(home(hash), std::size_t{length_}); i < length_; ++i) {
         if (usedAt(i) && !before(i, hash, key) && !holds(i, hash, key)) {
            return i;
         }
      }
      return npos;
   }

   std::size_t relocate(std::size_t slot, std::uint32_t hash, const K& key) const {
      if (holds(slot, hash, key)) {
         return slot;
      }
      std::size_t found = findSlot(key, hash);
      VOK_ASSERT(found != npos, "dereferenced a map iterator whose entry was removed");
      return found;
   }

   // Grows at 80 % of the home slots, by a quarter, so the load stays
   // between 64 % and 80 % whatever the size: the slack of a table is most
   // of a large map's memory, and growing by half or doubling made the
   // memory per entry swing by a quarter with the map's size. Once a map is
   // split, a growth rebuilds one of its parts only.
   bool full() const noexcept {
      return capacity_ < 8 ? size_ >= capacity_ : size_ >= capacity_ / 5 * 4;
   }
   std::size_t grownCapacity() const noexcept {
      return capacity_ < 8 ? capacity_ + 1 : capacity_ + capacity_ / 4;
   }

   // An insertion that would sit this far from home grows the table, as
   // long as the table is not nearly empty: a key set crowded into one part
   // of the hash range (left behind when entries were erased in iteration
   // order) is spread out again, while keys whose hashes are equal, which
   // no capacity separates, cannot make it grow without bound. Clusters of
   // well-spread keys reach several dozen slots at 70 % load, so a shorter
   // limit grows tables long before they are full.
   static constexpr std::size_t kLongProbe = 128;

   // Is an entry of `hash` ordered after every entry present? A table
   // filled in its own order (a copy, a drain in hash order) asks this of
   // every key, and is answered from the table itself, without a probe.
   bool ordersLast(std::uint32_t hash) const noexcept { return size_ == 0 || hash > lastHash_; }

   template <class... Args>
   std::size_t insertSlot(const K& key, std::uint32_t hash, Args&&... args);

   // Builds key -> V(args...) in the free slot `slot`.
   template <class... Args>
   void build(std::size_t slot, std::uint32_t hash, const K& key, Args&&... args) {
      std::construct_at(placeAt(slot), std::piecewise_construct, std::forward_as_tuple(key),
                        std::forward_as_tuple(std::forward<Args>(args)...));
      hashAt(slot) = hash;
      noteIfLast(slot);
      ++size_;
   }

   // Keeps last_ on the entry ordered last, given one just placed in `slot`.
   void noteIfLast(std::size_t slot) noexcept {
      if (size_ == 0 || slot > last_) {
         last_ = static_cast<std::uint32_t>(slot);
         lastHash_ = hashAt(slot);
      }
   }

   void eraseSlot(std::size_t slot);

   // Moves the slots (hole, end) one place down, into the free slot `hole`.
   void shiftDown(std::size_t hole, std::size_t end);

   // Moves the slots [first, free) one place up, into the free slot `free`.
   void shiftUp(std::size_t first, std::size_t free);

   // Moves the plain-byte entries of [first, end), with their hashes, to
   // start at `to`.
   void moveRun(std::size_t first, std::size_t end, std::size_t to);

   void moveSlot(std::size_t from, std::size_t to);

   // A map gives its memory back only once it is empty. Shrinking a
   // partly emptied table is unsafe here: keys erased in iteration order
   // leave survivors in one end of the hash range, and re-homing them into
   // fewer slots would pack them into a few giant clusters. Growing never
   // has that problem: scaling homes up only shortens clusters.
   void maybeShrink() {
      if (size_ == 0) {
         release();
         capacity_ = 0;
      }
   }

   static std::size_t tailFor(std::size_t capacity) { return capacity >= 16 ? capacity / 16 : 0; }

   // Rebuilds the table with `capacity` home slots; walking the old table in
   // order inserts keys in sorted order, which is the canonical layout.
   // Both build the new table beside this one and swap only once it is
   // complete: a failed allocation leaves this table as it was.
   void rehash(std::size_t capacity);

   void extendTail();

   // Moves every entry of `old`, in order, to the slot `place` picks.
   template <class Place>
   void adopt(OrderedTable& old, Place place);

   // Builds `entry` in `slot`, lengthening the tail to reach it; returns the
   // slot after it.
   std::size_t put(std::size_t slot, std::uint32_t hash, value_type&& entry);

   void allocate(std::size_t length);

   void release();

   std::byte* block_ = nullptr;
   std::uint32_t capacity_ = 0;  // home slots; length_ adds the spill tail
   std::uint32_t length_ = 0;
   std::uint32_t size_ = 0;
   std::uint8_t shift_ = 0;  // hash bits shared by every key of this table
   // While the table is not empty: the slot and hash of the entry ordered
   // last.
   std::uint32_t last_ = 0;
   std::uint32_t lastHash_ = 0;
};

}  // namespace detail

}  // namespace Vok

#include "platform/vok/OrderedTableSlots.h"
