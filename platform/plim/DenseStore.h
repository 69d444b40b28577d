// A store for rows keyed by numbers handed out in sequence (via-set keys).
// Rows sit in pages of 4,096 by their number, so a run of new rows fills one
// page after another instead of landing on random slots of a hash table,
// and a page is freed with its last row. Visits go in key order.
//
// The page index is as long as the largest key's page: at most a million
// pointers (8 MB) for keys near 2^32, which sequential keys reach only after
// billions of rows were made.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/plim/Store.h"

namespace Plim {

template <class K>
concept NumberedKey = requires(const K& key) {
   { key.value() } -> std::same_as<std::uint32_t>;
   K(std::uint32_t{});
};

template <NumberedKey K, class V>
class DenseStore final : public Store<K, V> {
   static constexpr unsigned kPageBits = 12;
   static constexpr std::size_t kPageRows = std::size_t{1} << kPageBits;

   struct Page {
      std::array<std::optional<V>, kPageRows> rows{};
      std::size_t count = 0;
   };

 public:
   const V* row(const K& key) const override {
      const Page* page = pageOf(key.value());
      if (!page) {
         return nullptr;
      }
      const std::optional<V>& slot = page->rows[key.value() & (kPageRows - 1)];
      return slot ? &*slot : nullptr;
   }

   void rowIs(const K& key, const V& value) override {
      const std::size_t index = key.value() >> kPageBits;
      if (index >= pages_.size()) {
         pages_.resize(index + 1);
      }
      if (!pages_[index]) {
         pages_[index] = std::make_unique<Page>();
      }
      Page& page = *pages_[index];
      std::optional<V>& slot = page.rows[key.value() & (kPageRows - 1)];
      const bool added = !slot;
      slot = value;
      if (added) {
         ++page.count;
         ++size_;
      }
   }

   bool rowDel(const K& key) override {
      Page* page = pageOf(key.value());
      if (!page) {
         return false;
      }
      std::optional<V>& slot = page->rows[key.value() & (kPageRows - 1)];
      if (!slot) {
         return false;
      }
      slot.reset();
      --size_;
      if (--page->count == 0) {
         pages_[key.value() >> kPageBits].reset();
      }
      return true;
   }

   void rowDelAll() override {
      pages_.clear();
      size_ = 0;
   }

   std::size_t size() const override { return size_; }

   void forEach(const std::function<void(const K&, const V&)>& visit) const override {
      for (std::size_t index = 0; index < pages_.size(); ++index) {
         for (std::size_t i = 0; i < kPageRows; ++i) {
            const Page* page = pages_[index].get();  // a visit may have freed it
            if (!page) {
               break;
            }
            if (const std::optional<V>& slot = page->rows[i]) {
               visit(K(static_cast<std::uint32_t>(index << kPageBits | i)), *slot);
            }
         }
      }
   }

 private:
   Page* pageOf(std::uint32_t number) const {
      const std::size_t index = number >> kPageBits;
      return index < pages_.size() ? pages_[index].get() : nullptr;
   }

   std::vector<std::unique_ptr<Page>> pages_;
   std::size_t size_ = 0;
};

}  // namespace Plim
