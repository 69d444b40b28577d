// Per VRF and address family: the via keys the installer allocated for each
// interface, and how many uses of them are outstanding.
//
// A count row exists only while its count is above zero; a key row lives
// from the installer's insertion to its deletion, independently of the
// count. Decrementing without a positive count is a programming error and
// stops the process, never a silent clamp. Nobody watches this table:
// callers read it directly.
//
// Key rows and count rows are kept by the interface's number (IntfNumbers,
// shared by both families of a store), which is also how the installer
// records an installed route's owner.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "model/IntfNumbers.h"
#include "model/ValueRecords.h"
#include "platform/ovel/AddressFamily.h"
#include "platform/vok/Entity.h"

namespace Routing::ConnectedRoute {

class IntfViaSetKeyStatus final : public Vok::Entity {
 public:
   // A table of a store shares the store's numbers; one on its own numbers
   // its interfaces itself.
   explicit IntfViaSetKeyStatus(Ovel::AddressFamily addressFamily,
                                std::shared_ptr<IntfNumbers> numbers = std::make_shared<IntfNumbers>())
         : addressFamily_(addressFamily), numbers_(std::move(numbers)) {}

   Ovel::AddressFamily addressFamily() const noexcept { return addressFamily_; }

   // The interface's key row, or null; it stays where it is until the row
   // is deleted.
   const IntfViaSetKey* intfViaSetKey(const Ovel::IntfId& intfId) const {
      const IntfNumber number = numbers_->find(intfId);
      return number < keys_.size() && keys_[number] ? &*keys_[number] : nullptr;
   }
   // Inserts the row under value.intfId(), or replaces every field of it.
   void intfViaSetKeyIs(const IntfViaSetKey& value);
   void intfViaSetKeyDel(const Ovel::IntfId& intfId);
   void intfViaSetKeyDelAll() {
      keys_.clear();
      keyRows_ = 0;
   }
   std::size_t intfViaSetKeyCount() const noexcept { return keyRows_; }

   // The interface's count; an absent row reads as 0.
   std::uint32_t vskRefcountByIntfId(const Ovel::IntfId& intfId) const {
      const std::uint32_t count = countOf(intfId);
      return count == kNoRow ? 0 : count;
   }
   bool hasVskRefcount(const Ovel::IntfId& intfId) const { return countOf(intfId) != kNoRow; }
   void vskRefcountByIntfIdIs(const Ovel::IntfId& intfId, std::uint32_t count);
   void vskRefcountByIntfIdDel(const Ovel::IntfId& intfId);
   void vskRefcountByIntfIdDelAll() {
      counts_.clear();
      rows_ = 0;
   }
   std::size_t vskRefcountCount() const noexcept { return rows_; }
   // Every count row, in the order of the interfaces' numbers.
   template <class Fn>
   void forEachVskRefcount(Fn&& visit) const {
      for (IntfNumber number = 0; number < counts_.size(); ++number) {
         if (counts_[number] != kNoRow) {
            visit(numbers_->name(number), counts_[number]);
         }
      }
   }

   // One more use of the interface's keys; returns the interface's number.
   IntfNumber incIntfVskRefcount(const Ovel::IntfId& intfId);
   void decIntfVskRefcount(const Ovel::IntfId& intfId);
   // The same by the interface's number (IntfNumbers), which the installer
   // holds for every route: no lookup by name. The decrement returns the
   // count left.
   void incVskRefcountOf(IntfNumber number);
   std::uint32_t decVskRefcountOf(IntfNumber number);

 private:
   // Rows by interface number: an address machine reads its interface's
   // keys for every prefix of an address, and the installer reaches a count
   // row for every route it writes, at random over the interfaces; arrays
   // indexed by number stay in the caches where tables keyed by 24-byte
   // names do not. A deque grows block by block, never copying what it
   // holds, and keeps every row where it is.
   static constexpr std::uint32_t kNoRow = 0xFFFFFFFF;
   std::uint32_t countOf(const Ovel::IntfId& intfId) const {
      const IntfNumber number = numbers_->find(intfId);
      return number < counts_.size() ? counts_[number] : kNoRow;  // kNone is past the end
   }
   std::uint32_t& rowFor(IntfNumber number);

   Ovel::AddressFamily addressFamily_;
   std::shared_ptr<IntfNumbers> numbers_;
   std::deque<std::optional<IntfViaSetKey>> keys_;  // by interface number
   std::size_t keyRows_ = 0;
   std::deque<std::uint32_t> counts_;  // by interface number; kNoRow: none
   std::size_t rows_ = 0;
};

}  // namespace Routing::ConnectedRoute
