// The slot moves and growth of an ordered table (OrderedTable.h): where an
// insertion goes and which entries shift for it, the backward shift of an
// erase, and rebuilding the table at another capacity. Included by
// OrderedTable.h only.
#pragma once

namespace Vok::detail {

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::splitInto(std::uint32_t upperBit, OrderedTable& lower, OrderedTable& upper) {
   VOK_ASSERT(lower.empty() && upper.empty(), "splitInto: the halves must start empty");
   std::size_t next[2] = {0, 0};
   for (std::size_t i = 0; i < length_; ++i) {
      if (usedAt(i)) {
         const std::uint32_t hash = hashAt(i);
         const bool up = (hash & upperBit) != 0;
         OrderedTable& half = up ? upper : lower;
         next[up] = half.put(std::max(half.home(hash), next[up]), hash, std::move(entryAt(i)));
      }
   }
}

template <class K, class V, class Traits>
template <class... Args>
inline std::size_t OrderedTable<K, V, Traits>::insertSlot(const K& key, std::uint32_t hash, Args&&... args) {
   if (full()) {
      rehash(grownCapacity());
   }
   if (ordersLast(hash)) {
      // Where inserting in sorted order puts it: at home, or right after
      // the last entry, whose run reaches any home before it.
      const std::size_t slot = size_ == 0 ? home(hash) : std::max(home(hash), std::size_t{last_} + 1);
      while (slot >= length_) {
         extendTail();
      }
      build(slot, hash, key, std::forward<Args>(args)...);
      return slot;
   }
   std::size_t slot, freeSlot;
   for (;;) {
      slot = home(hash);
      while (slot < length_ && usedAt(slot) && before(slot, hash, key)) {
         ++slot;
      }
      freeSlot = slot;
      while (freeSlot < length_ && usedAt(freeSlot)) {
         ++freeSlot;
      }
      if (freeSlot - home(hash) <= kLongProbe || size_ < capacity_ / 8) {
         break;
      }
      rehash(grownCapacity());
   }
   if (freeSlot == length_) {
      extendTail();
   }
   shiftUp(slot, freeSlot);
   const bool lastMoved = last_ >= slot && last_ < freeSlot;
   if (lastMoved) {
      ++last_;  // the last entry moved up with its run
   }
   try {
      build(slot, hash, key, std::forward<Args>(args)...);
   } catch (...) {
      // A key or value that fails to build leaves the table as it was: the
      // run moves back, so no gap cuts it off from its home.
      shiftDown(slot, freeSlot + 1);
      if (lastMoved) {
         --last_;
      }
      throw;
   }
   return slot;
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::eraseSlot(std::size_t slot) {
   std::destroy_at(&entryAt(slot));
   hashAt(slot) = kFree;
   --size_;
   // Backward shift: displaced successors move up so no gap breaks a
   // cluster; an entry sitting at its home slot ends the shift.
   std::size_t end = slot + 1;
   while (end < length_ && usedAt(end) && home(hashAt(end)) < end) {
      ++end;
   }
   shiftDown(slot, end);
   if (last_ > slot && last_ < end) {
      --last_;  // moved down with its run
   } else if (last_ == slot && size_ != 0) {
      while (!usedAt(--last_)) {
      }
      lastHash_ = hashAt(last_);
   }
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::shiftDown(std::size_t hole, std::size_t end) {
   if (end == hole + 1) {
      return;
   }
   if constexpr (kBytewise) {
      moveRun(hole + 1, end, hole);
      hashAt(end - 1) = kFree;
   } else {
      for (std::size_t i = hole + 1; i < end; ++i) {
         moveSlot(i, i - 1);
      }
   }
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::shiftUp(std::size_t first, std::size_t free) {
   if constexpr (kBytewise) {
      // Entries of plain bytes move as one block; the slot left at `first`
      // is rebuilt by the caller.
      moveRun(first, free, first + 1);
      hashAt(first) = kFree;
   } else {
      for (std::size_t i = free; i > first; --i) {
         moveSlot(i - 1, i);
      }
   }
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::moveRun(std::size_t first, std::size_t end, std::size_t to) {
   const std::size_t count = end - first;
   std::memmove(static_cast<void*>(slots() + to), static_cast<const void*>(slots() + first),
                count * sizeof(Slot));
   std::memmove(hashes() + to, hashes() + first, count * sizeof(std::uint32_t));
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::moveSlot(std::size_t from, std::size_t to) {
   std::construct_at(placeAt(to), std::move(entryAt(from)));
   std::destroy_at(&entryAt(from));
   hashAt(to) = hashAt(from);
   hashAt(from) = kFree;
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::rehash(std::size_t capacity) {
   OrderedTable grown;
   grown.shift_ = shift_;
   grown.capacity_ = static_cast<std::uint32_t>(capacity);
   grown.allocate(capacity + tailFor(capacity));
   grown.adopt(*this, [&grown](std::size_t, std::uint32_t hash, std::size_t next) {
      return std::max(grown.home(hash), next);
   });
   swap(grown);
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::extendTail() {
   OrderedTable longer;
   longer.shift_ = shift_;
   longer.capacity_ = capacity_;
   longer.allocate(length_ + std::max<std::size_t>(4, length_ / 8));
   longer.adopt(*this, [](std::size_t slot, std::uint32_t, std::size_t) { return slot; });
   swap(longer);
}

template <class K, class V, class Traits>
template <class Place>
inline void OrderedTable<K, V, Traits>::adopt(OrderedTable& old, Place place) {
   std::size_t next = 0;
   for (std::size_t i = 0; i < old.length_; ++i) {
      if (!old.usedAt(i)) {
         continue;
      }
      next = put(place(i, old.hashAt(i), next), old.hashAt(i), std::move(old.entryAt(i)));
   }
}

template <class K, class V, class Traits>
inline std::size_t OrderedTable<K, V, Traits>::put(std::size_t slot, std::uint32_t hash, value_type&& entry) {
   while (slot >= length_) {
      extendTail();
   }
   std::construct_at(placeAt(slot), std::move(entry));
   hashAt(slot) = hash;
   noteIfLast(slot);
   ++size_;
   return slot + 1;
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::allocate(std::size_t length) {
   VOK_ASSERT(length < 0xFFFFFFFFu, "hash map too large");
   block_ = static_cast<std::byte*>(
         ::operator new(hashesOffset(length) + length * sizeof(std::uint32_t)));
   length_ = static_cast<std::uint32_t>(length);
   std::fill_n(hashes(), length, kFree);
}

template <class K, class V, class Traits>
inline void OrderedTable<K, V, Traits>::release() {
   if (!block_) {
      return;
   }
   for (std::size_t i = 0; i < length_; ++i) {
      if (usedAt(i)) {
         std::destroy_at(&entryAt(i));
      }
   }
   ::operator delete(block_);
   block_ = nullptr;
   length_ = 0;
   size_ = 0;
}

}  // namespace Vok::detail
