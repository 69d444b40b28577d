#include "model/IntfViaSetKeyStatus.h"

#include "model/IntfBacklogTrace.h"
#include "platform/vok/Assert.h"

namespace Routing::ConnectedRoute {

void IntfViaSetKeyStatus::incIntfVskRefcount(const Ovel::IntfId& intfId) {
   // One lookup finds the count or makes room for it: this runs for every
   // route the installer writes.
   const std::uint32_t count = ++*vskRefcountByIntfId_.tryEmplace(intfId, 0u).first;
   VOK_TRACE(intfBacklogTrace(), 9, Vok::pointerText(this), "intf=" << intfId << " rc=" << count);
}

void IntfViaSetKeyStatus::decIntfVskRefcount(const Ovel::IntfId& intfId) {
   std::uint32_t* count = vskRefcountByIntfId_.lookup(intfId);
   VOK_ASSERT(count && *count > 0, "vskRefcountByIntfId( intfId ) > 0");
   if (--*count == 0) {
      vskRefcountByIntfIdDel(intfId);
   }
   VOK_TRACE(intfBacklogTrace(), 9, Vok::pointerText(this),
             "intf=" << intfId << " rc=" << vskRefcountByIntfId(intfId));
}

}  // namespace Routing::ConnectedRoute
