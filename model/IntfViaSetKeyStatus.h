// Per VRF and address family: the via keys the installer allocated for each
// interface, and how many uses of them are outstanding.
//
// A count row exists only while its count is above zero; a key row lives
// from the installer's insertion to its deletion, independently of the
// count. Decrementing without a positive count is a programming error and
// stops the process, never a silent clamp. Nobody watches this table:
// callers read it directly.
//
// Each count row also holds the interface's number (IntfNumbers, shared by
// both families of a store), which is how the installer records an
// installed route's owner.
#pragma once

#include <cstdint>
#include <memory>

#include "model/IntfNumbers.h"
#include "model/ValueRecords.h"
#include "platform/ovel/AddressFamily.h"
#include "platform/vok/Entity.h"
#include "platform/vok/HashMap.h"

namespace Routing::ConnectedRoute {

class IntfViaSetKeyStatus final : public Vok::Entity {
 public:
   // A table of a store shares the store's numbers; one on its own numbers
   // its interfaces itself.
   explicit IntfViaSetKeyStatus(Ovel::AddressFamily addressFamily,
                                std::shared_ptr<IntfNumbers> numbers = std::make_shared<IntfNumbers>())
         : addressFamily_(addressFamily), numbers_(std::move(numbers)) {}

   Ovel::AddressFamily addressFamily() const noexcept { return addressFamily_; }

   // The interface's key row, or null.
   const IntfViaSetKey* intfViaSetKey(const Ovel::IntfId& intfId) const {
      return intfViaSetKey_.lookup(intfId);
   }
   // Inserts the row under value.intfId(), or replaces every field of it.
   void intfViaSetKeyIs(const IntfViaSetKey& value) {
      intfViaSetKey_.insertOrAssign(value.intfId(), value);
   }
   void intfViaSetKeyDel(Ovel::IntfId intfId) { intfViaSetKey_.erase(intfId); }
   void intfViaSetKeyDelAll() { intfViaSetKey_.clear(); }
   std::size_t intfViaSetKeyCount() const noexcept { return intfViaSetKey_.size(); }
   const Vok::HashMap<Ovel::IntfId, IntfViaSetKey>& intfViaSetKeys() const noexcept {
      return intfViaSetKey_;
   }

   // The interface's count; an absent row reads as 0.
   std::uint32_t vskRefcountByIntfId(const Ovel::IntfId& intfId) const {
      const CountRow* row = counts_.lookup(intfId);
      return row ? row->count : 0;
   }
   bool hasVskRefcount(const Ovel::IntfId& intfId) const { return counts_.contains(intfId); }
   void vskRefcountByIntfIdIs(const Ovel::IntfId& intfId, std::uint32_t count) {
      rowFor(intfId).count = count;
   }
   void vskRefcountByIntfIdDel(Ovel::IntfId intfId) { counts_.erase(intfId); }
   void vskRefcountByIntfIdDelAll() { counts_.clear(); }
   std::size_t vskRefcountCount() const noexcept { return counts_.size(); }
   // Every count row, in the table's order.
   template <class Fn>
   void forEachVskRefcount(Fn&& visit) const {
      for (const auto& [intfId, row] : counts_) {
         visit(intfId, row.count);
      }
   }

   // One more use of the interface's keys; returns the interface's number.
   IntfNumber incIntfVskRefcount(const Ovel::IntfId& intfId);
   void decIntfVskRefcount(const Ovel::IntfId& intfId);

 private:
   // The count and the interface's number live in one row: the installer
   // reads both for every route it writes, and one lookup finds them.
   struct CountRow {
      std::uint32_t count = 0;
      IntfNumber number = IntfNumbers::kNone;
   };
   CountRow& rowFor(const Ovel::IntfId& intfId);

   Ovel::AddressFamily addressFamily_;
   std::shared_ptr<IntfNumbers> numbers_;
   Vok::HashMap<Ovel::IntfId, IntfViaSetKey> intfViaSetKey_;
   Vok::HashMap<Ovel::IntfId, CountRow> counts_;
};

}  // namespace Routing::ConnectedRoute
