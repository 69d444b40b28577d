#include "install/RibTables.h"

#include "platform/vok/Errors.h"

namespace Routing::ConnectedRoute {

namespace {

struct FamilyTableNames {
   const char* viaConfig;
   const char* routeConfig;
   const char* queryTable;
};

void checkSameFamily(const FamilyTableNames& names, const FamilyRibTables& wanted,
                     const FamilyRibTables& current) {
   Vok::checkSameArgument(names.viaConfig, wanted.viaConfig.get(), current.viaConfig.get());
   Vok::checkSameArgument(names.routeConfig, wanted.routeConfig.get(), current.routeConfig.get());
   Vok::checkSameArgument(names.queryTable, wanted.queryTable.get(), current.queryTable.get());
}

}  // namespace

void RibTables::checkSameAs(const RibTables& current) const {
   checkSameFamily({"ipv4ViaConfig", "route4Config", "route4OrmoConfig"}, ipv4, current.ipv4);
   checkSameFamily({"ipv6ViaConfig", "route6Config", "route6OrmoConfig"}, ipv6, current.ipv6);
   Vok::checkSameArgument("viaSetConfig", viaSetConfig.get(), current.viaSetConfig.get());
}

}  // namespace Routing::ConnectedRoute
