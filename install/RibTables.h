// The RIB tables one VRF's installer writes, as one bundle: for each address
// family its via table, its route table and the query table shared by every
// VRF (written instead of the route table under "VrfScaleToggle"), and the
// via sets both families share.
#pragma once

#include "platform/ovel/AddressFamily.h"
#include "platform/rib/IpRibRouteOrqTable.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaConfig.h"
#include "platform/rib/ViaSetConfig.h"

namespace Routing::ConnectedRoute {

struct FamilyRibTables {
   Vok::Ptr<Rib::Ip::ViaConfig> viaConfig;
   Vok::Ptr<Rib::RouteConfig> routeConfig;
   Vok::Ptr<Rib::IpRibRouteOrqTable> queryTable;
};

struct RibTables {
   FamilyRibTables ipv4;
   FamilyRibTables ipv6;
   Vok::Ptr<Rib::ViaSetConfig> viaSetConfig;

   // The tables of a prefix's family: IPv4's, or IPv6's for any other.
   FamilyRibTables& of(Ovel::AddressFamily af) noexcept {
      return af == Ovel::AddressFamily::ipv4 ? ipv4 : ipv6;
   }
   const FamilyRibTables& of(Ovel::AddressFamily af) const noexcept {
      return af == Ovel::AddressFamily::ipv4 ? ipv4 : ipv6;
   }

   // Raises Vok::ReinstantiationError for the first table that is not
   // `current`'s, named as the installer's constructor names its argument.
   void checkSameAs(const RibTables& current) const;
};

}  // namespace Routing::ConnectedRoute
