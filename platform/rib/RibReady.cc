#include "platform/rib/RibReady.h"

#include "platform/rib/TablePaths.h"
#include "platform/vok/TypeRegistry.h"

namespace Routing::Rib {

namespace {
const bool registered = Vok::registerEntityType<ProtoVrfStatus>(kProtoVrfStatusType,
                                                                 {"ready", "readyTime"});
}  // namespace

ProtoVrfStatus::~ProtoVrfStatus() { (void)registered; }

}  // namespace Routing::Rib
