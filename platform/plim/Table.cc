#include "platform/plim/Table.h"

#include "platform/trace/Trace.h"

namespace Plim {

namespace {
const Vok::TraceHandle trace("Plim");
}

void Table::checkChange(Change change) const {
   if (!writable_) {
      switch (change) {
         case Change::write:
            throw Belm::NoPermissionException("write to read-only Plim table");
         case Change::remove:
            throw Belm::NoPermissionException("remove to read-only Plim table");
         case Change::cleanup:
            throw Belm::NoPermissionException("cleanup to read-only Plim table");
      }
   }
   checkRead();
}

void Table::checkRead() const {
   if (backing_->corrupt) {
      throw Belm::CorruptionDetectedException("Plim table corruption detected");
   }
}

void Table::corruptionDetected(const Belm::CorruptionDetectedException& error) const {
   ++backing_->corruptionReports;
   VOK_TRACE(trace, 0, Vok::pointerText(this), "corruption reported: " << error.what());
}

}  // namespace Plim
