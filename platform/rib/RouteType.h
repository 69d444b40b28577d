// What kind of connected route a FIB entry is. The numbers are what the
// forwarding agents store and print, so the text form is the number itself
// and the gaps in the numbering are deliberate: never renumber.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Routing::Fib {

enum class RouteType : uint8_t {
   none = 0,
   // Host route for an interface address that also has a subnet (10.1.1.5/24
   // gives 10.1.1.5/32).
   hostOfSubnetAddress = 1,
   // Host route for an interface address configured at full length
   // (10.1.1.5/32), which has no subnet of its own.
   hostOfFullLengthAddress = 2,
   // Receive route for the network or broadcast address of a subnet.
   networkOrBroadcastReceive = 3,
   // Directed-broadcast route towards a subnet's broadcast address.
   directedBroadcast = 4,
   // The attached subnet itself.
   attachedSubnet = 11,
};

// The decimal number, "11".
std::string toString(RouteType type);
// Accepts only the numbers of the named route types; throws Vok::ParseError.
RouteType parseRouteType(std::string_view text);

std::ostream& operator<<(std::ostream& os, RouteType type);

}  // namespace Routing::Fib
