#include "model/IntfViaSetKeyStatus.h"

#include "model/IntfBacklogTrace.h"
#include "platform/vok/Assert.h"

namespace Routing::ConnectedRoute {

IntfViaSetKeyStatus::CountRow& IntfViaSetKeyStatus::rowFor(const Ovel::IntfId& intfId) {
   CountRow& row = *counts_.tryEmplace(intfId).first;
   if (row.number == IntfNumbers::kNone) {
      try {
         row.number = numbers_->numberOf(intfId);
      } catch (...) {
         counts_.erase(intfId);  // no row without its number
         throw;
      }
   }
   return row;
}

IntfNumber IntfViaSetKeyStatus::incIntfVskRefcount(const Ovel::IntfId& intfId) {
   // One lookup finds the count and the number, or makes room for them: this
   // runs for every route the installer writes.
   CountRow& row = rowFor(intfId);
   ++row.count;
   VOK_TRACE(intfBacklogTrace(), 9, Vok::pointerText(this), "intf=" << intfId << " rc=" << row.count);
   return row.number;
}

void IntfViaSetKeyStatus::decIntfVskRefcount(const Ovel::IntfId& intfId) {
   CountRow* row = counts_.lookup(intfId);
   VOK_ASSERT(row && row->count > 0, "vskRefcountByIntfId( intfId ) > 0");
   if (--row->count == 0) {
      vskRefcountByIntfIdDel(intfId);
   }
   VOK_TRACE(intfBacklogTrace(), 9, Vok::pointerText(this),
             "intf=" << intfId << " rc=" << vskRefcountByIntfId(intfId));
}

}  // namespace Routing::ConnectedRoute
