// Numeric text form of route types; parsing accepts only the enumerated
// numbers so a stray code never becomes a route type nobody handles.

#include "platform/rib/RouteType.h"

#include <ostream>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace Routing::Fib {

std::string toString(RouteType type) { return std::to_string(static_cast<unsigned>(type)); }

RouteType parseRouteType(std::string_view text) {
   if (Ovel::decimalFault(text) == nullptr) {
      switch (Ovel::decimalValue(text)) {
         case 0:
            return RouteType::none;
         case 1:
            return RouteType::hostOfSubnetAddress;
         case 2:
            return RouteType::hostOfFullLengthAddress;
         case 3:
            return RouteType::networkOrBroadcastReceive;
         case 4:
            return RouteType::directedBroadcast;
         case 11:
            return RouteType::attachedSubnet;
         default:
            break;
      }
   }
   throw Vok::ParseError("bad route type '" + std::string(text) + "'");
}

std::ostream& operator<<(std::ostream& os, RouteType type) { return os << toString(type); }

}  // namespace Routing::Fib
