// Where a table keeps its rows. Tables talk to their rows only through this
// small interface so that the in-memory store below can be swapped for one in
// shared memory, read by other processes and found again, stale rows and all,
// when the agent restarts.
#pragma once

#include <cstddef>
#include <functional>

#include "platform/vok/HashMap.h"

namespace Plim {

template <class K, class V>
class Store {
 public:
   virtual ~Store() = default;
   virtual const V* row(const K& key) const = 0;
   virtual void rowIs(const K& key, const V& value) = 0;
   virtual bool rowDel(const K& key) = 0;
   virtual void rowDelAll() = 0;
   virtual std::size_t size() const = 0;
   // A hint that the store is about to hold about `rows` rows: a store in
   // memory takes its room for them at once instead of growing row by row.
   virtual void reserve(std::size_t /*rows*/) {}
   // Visits rows in the store's deterministic order; the visitor may delete
   // the row it is given.
   virtual void forEach(const std::function<void(const K&, const V&)>& visit) const = 0;
};

template <class K, class V>
class MemoryStore final : public Store<K, V> {
 public:
   const V* row(const K& key) const override { return rows_.lookup(key); }
   void rowIs(const K& key, const V& value) override { rows_.insertOrAssign(key, value); }
   bool rowDel(const K& key) override { return rows_.erase(key); }
   void rowDelAll() override { rows_.clear(); }
   std::size_t size() const override { return rows_.size(); }
   void reserve(std::size_t rows) override { rows_.reserve(rows); }
   void forEach(const std::function<void(const K&, const V&)>& visit) const override {
      for (auto it = rows_.begin(); it != rows_.end(); ++it) {
         visit(it->first, it->second);
      }
   }

 private:
   Vok::HashMap<K, V> rows_;
};

}  // namespace Plim
