// Small numbers for the interfaces of one VRF, handed out on first sight and
// kept for the VRF's life.
//
// The installer raises an interface's use count and records it as a
// prefix's owner for every route it writes; recording a 4-byte number kept
// in the count's row, instead of a 24-byte name, saves a hash lookup per
// route and 20 bytes per installed owner.
// Numbers are never taken back: there are as many as interfaces the VRF has
// seen, so a number held anywhere always names the same interface.
#pragma once

#include <cstdint>
#include <deque>

#include "platform/ovel/IntfId.h"
#include "platform/vok/Assert.h"
#include "platform/vok/HashMap.h"

namespace Routing::ConnectedRoute {

using IntfNumber = std::uint32_t;

class IntfNumbers final {
 public:
   static constexpr IntfNumber kNone = 0xFFFFFFFF;
   // Numbers stay below this: they fit in 30 bits, and a record of the
   // store keeps one beside two flags in a word.
   static constexpr IntfNumber kLimit = 0x3FFFFFFF;

   // The interface's number, given now if it has none yet.
   IntfNumber numberOf(const Ovel::IntfId& intfId) {
      if (const IntfNumber number = find(intfId); number != kNone) {
         return last_ = number;
      }
      VOK_ASSERT(names_.size() < kLimit, "intfNumbers.size() < kLimit");
      // The name goes in first: a failure between the two leaves no number
      // without its name.
      const auto number = static_cast<IntfNumber>(names_.size());
      names_.push_back(intfId);
      try {
         numbers_.tryEmplace(intfId, number);
      } catch (...) {
         names_.pop_back();
         throw;
      }
      return last_ = number;
   }
   // The interface's number, or kNone if it has none.
   IntfNumber find(const Ovel::IntfId& intfId) const {
      if (last_ != kNone && intfId == names_[last_]) {
         return last_;
      }
      const IntfNumber* number = numbers_.lookup(intfId);
      return number ? *number : kNone;
   }
   // How many interfaces have numbers: every number is below it.
   std::size_t size() const noexcept { return names_.size(); }
   const Ovel::IntfId& name(IntfNumber number) const {
      VOK_ASSERT(number < names_.size(), "number < intfNumbers.size()");
      return names_[number];
   }

 private:
   Vok::HashMap<Ovel::IntfId, IntfNumber> numbers_;
   // A deque grows block by block; a vector would copy every name when it
   // grows, a step proportional to the interfaces inside one drain slice.
   std::deque<Ovel::IntfId> names_;
   // The number numberOf gave last, answered without a lookup: an address
   // machine asks for its interface several times per address, and the
   // machines of one interface run one after another.
   IntfNumber last_ = kNone;
};

}  // namespace Routing::ConnectedRoute
