#include "model/IntfViaSetKeyStatus.h"

#include "model/IntfBacklogTrace.h"
#include "platform/vok/Assert.h"

namespace Routing::ConnectedRoute {

void IntfViaSetKeyStatus::intfViaSetKeyIs(const IntfViaSetKey& value) {
   const IntfNumber number = numbers_->numberOf(value.intfId());
   while (keys_.size() <= number) {
      keys_.emplace_back();
   }
   keyRows_ += !keys_[number];
   keys_[number] = value;
}

void IntfViaSetKeyStatus::intfViaSetKeyDel(const Ovel::IntfId& intfId) {
   const IntfNumber number = numbers_->find(intfId);
   if (number < keys_.size() && keys_[number]) {
      keys_[number].reset();
      --keyRows_;
   }
}

std::uint32_t& IntfViaSetKeyStatus::rowFor(IntfNumber number) {
   VOK_ASSERT(number < numbers_->size(), "number < intfNumbers.size()");
   while (counts_.size() <= number) {
      counts_.push_back(kNoRow);
   }
   std::uint32_t& count = counts_[number];
   if (count == kNoRow) {
      count = 0;
      ++rows_;
   }
   return count;
}

void IntfViaSetKeyStatus::vskRefcountByIntfIdIs(const Ovel::IntfId& intfId, std::uint32_t count) {
   VOK_ASSERT(count != kNoRow, "count != kNoRow");
   rowFor(numbers_->numberOf(intfId)) = count;
}

void IntfViaSetKeyStatus::vskRefcountByIntfIdDel(const Ovel::IntfId& intfId) {
   const IntfNumber number = numbers_->find(intfId);
   if (number < counts_.size() && counts_[number] != kNoRow) {
      counts_[number] = kNoRow;
      --rows_;
   }
}

IntfNumber IntfViaSetKeyStatus::incIntfVskRefcount(const Ovel::IntfId& intfId) {
   const IntfNumber number = numbers_->numberOf(intfId);
   incVskRefcountOf(number);
   return number;
}

void IntfViaSetKeyStatus::decIntfVskRefcount(const Ovel::IntfId& intfId) {
   decVskRefcountOf(numbers_->find(intfId));  // which stops the process without a count
}

void IntfViaSetKeyStatus::incVskRefcountOf(IntfNumber number) {
   std::uint32_t& count = rowFor(number);
   VOK_ASSERT(count < kNoRow - 1, "vskRefcountByIntfId( intfId ) < kNoRow - 1");
   ++count;
   VOK_TRACE(intfBacklogTrace(), 9, Vok::pointerText(this),
             "intf=" << numbers_->name(number) << " rc=" << count);
}

std::uint32_t IntfViaSetKeyStatus::decVskRefcountOf(IntfNumber number) {
   std::uint32_t* count = number < counts_.size() ? &counts_[number] : nullptr;
   VOK_ASSERT(count && *count != kNoRow && *count > 0, "vskRefcountByIntfId( intfId ) > 0");
   const std::uint32_t left = --*count;
   if (left == 0) {
      *count = kNoRow;  // a row lives only while its count is above zero
      --rows_;
   }
   VOK_TRACE(intfBacklogTrace(), 9, Vok::pointerText(this),
             "intf=" << numbers_->name(number) << " rc=" << left);
   return left;
}

}  // namespace Routing::ConnectedRoute
