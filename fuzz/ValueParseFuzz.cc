// libFuzzer target for the value types' parsers. Every input goes to every
// parser; whatever parses must print as text that parses back to an equal
// value and prints the same again, the property config replay and state
// dumps depend on. Any exception other than Vok::ParseError is a finding too.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/l3/VrfName.h"
#include "platform/ovel/AddressFamily.h"
#include "platform/ovel/Ip6Addr.h"
#include "platform/ovel/Ip6AddrWithMask.h"
#include "platform/ovel/IpAddr.h"
#include "platform/ovel/IpAddrWithMask.h"
#include "platform/ovel/IpGenAddr.h"
#include "platform/ovel/IpGenAddrWithMask.h"
#include "platform/ovel/IpGenPrefix.h"
#include "platform/ovel/IntfId.h"
#include "platform/ovel/NamespaceName.h"
#include "platform/rib/RouteType.h"
#include "platform/rib/ViaKey.h"
#include "platform/rib/ViaSetKey.h"
#include "platform/vok/Errors.h"
#include "platform/vrf/VrfId.h"

namespace {

[[noreturn]] void roundTripFailed(const char* type, std::string_view input,
                                  const std::string& printed) {
   std::fprintf(stderr, "%s: '%.*s' printed as '%s', which does not round-trip\n", type,
                static_cast<int>(input.size()), input.data(), printed.c_str());
   std::abort();
}

template <typename T, typename Parse, typename Print>
void check(const char* type, std::string_view input, Parse parse, Print print) {
   T value;
   try {
      value = parse(input);
   } catch (const Vok::ParseError&) {
      return;
   }
   std::string printed = print(value);
   T again = parse(printed);
   if (!(again == value) || print(again) != printed) {
      roundTripFailed(type, input, printed);
   }
}

template <typename T>
void check(const char* type, std::string_view input) {
   check<T>(
         type, input, [](std::string_view text) { return T::parse(text); },
         [](const T& value) { return value.toString(); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   std::string_view input(reinterpret_cast<const char*>(data), size);
   check<Ovel::AddressFamily>(
         "AddressFamily", input, Ovel::parseAddressFamily,
         [](Ovel::AddressFamily af) { return Ovel::toString(af); });
   check<Ovel::IpAddr>("IpAddr", input);
   check<Ovel::Ip6Addr>("Ip6Addr", input);
   check<Ovel::IpAddrWithMask>("IpAddrWithMask", input);
   check<Ovel::Ip6AddrWithMask>("Ip6AddrWithMask", input);
   check<Ovel::IpGenAddr>("IpGenAddr", input);
   check<Ovel::IpGenPrefix>("IpGenPrefix", input);
   check<Ovel::IpGenAddrWithMask>("IpGenAddrWithMask", input);
   check<Ovel::IntfId>("IntfId", input);
   check<Ovel::NamespaceName>("NamespaceName", input);
   check<L3::VrfName>("VrfName", input);
   check<Vrf::VrfIdMap::VrfId>("VrfId", input);
   check<Routing::Fib::RouteType>(
         "RouteType", input, Routing::Fib::parseRouteType,
         [](Routing::Fib::RouteType type) { return Routing::Fib::toString(type); });
   check<Routing::Rib::ViaKey>("ViaKey", input);
   check<Routing::Rib::ViaSetKey>("ViaSetKey", input);
   return 0;
}
