// Per VRF and address family: the via keys the installer allocated for each
// interface, and how many uses of them are outstanding.
//
// A count row exists only while its count is above zero; a key row lives
// from the installer's insertion to its deletion, independently of the
// count. Decrementing without a positive count is a programming error and
// stops the process, never a silent clamp. Nobody watches this table:
// callers read it directly.
#pragma once

#include <cstdint>

#include "model/ValueRecords.h"
#include "platform/ovel/AddressFamily.h"
#include "platform/vok/Entity.h"
#include "platform/vok/HashMap.h"

namespace Routing::ConnectedRoute {

class IntfViaSetKeyStatus final : public Vok::Entity {
 public:
   explicit IntfViaSetKeyStatus(Ovel::AddressFamily addressFamily)
         : addressFamily_(addressFamily) {}

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
      const std::uint32_t* count = vskRefcountByIntfId_.lookup(intfId);
      return count ? *count : 0;
   }
   bool hasVskRefcount(const Ovel::IntfId& intfId) const {
      return vskRefcountByIntfId_.contains(intfId);
   }
   void vskRefcountByIntfIdIs(const Ovel::IntfId& intfId, std::uint32_t count) {
      vskRefcountByIntfId_.insertOrAssign(intfId, count);
   }
   void vskRefcountByIntfIdDel(Ovel::IntfId intfId) { vskRefcountByIntfId_.erase(intfId); }
   void vskRefcountByIntfIdDelAll() { vskRefcountByIntfId_.clear(); }
   std::size_t vskRefcountCount() const noexcept { return vskRefcountByIntfId_.size(); }
   const Vok::HashMap<Ovel::IntfId, std::uint32_t>& vskRefcounts() const noexcept {
      return vskRefcountByIntfId_;
   }

   void incIntfVskRefcount(const Ovel::IntfId& intfId);
   void decIntfVskRefcount(const Ovel::IntfId& intfId);

 private:
   Ovel::AddressFamily addressFamily_;
   Vok::HashMap<Ovel::IntfId, IntfViaSetKey> intfViaSetKey_;
   Vok::HashMap<Ovel::IntfId, std::uint32_t> vskRefcountByIntfId_;
};

}  // namespace Routing::ConnectedRoute
