#include "model/ValueRecords.h"

#include <ostream>

#include "model/RecordText.h"
#include "platform/vok/TypeRegistry.h"

namespace Routing::ConnectedRoute {

namespace {

constexpr std::string_view kPrefixOpen = "Value('Routing::ConnectedRoute::IntfIdAndPrefix', ** {";
constexpr std::string_view kAddrOpen = "Value('Routing::ConnectedRoute::IntfIdAndAddr', ** {";
constexpr std::string_view kPropertyOpen =
      "Value('Routing::ConnectedRoute::ConnectedRouteProperty', ** {";
constexpr std::string_view kViaSetKeyOpen = "Value('Routing::ConnectedRoute::IntfViaSetKey', ** {";
constexpr std::string_view kClose = "})";

const bool registered = [] {
   using Vok::Hashable;
   Vok::registerValueType<IntfIdAndPrefix>("Routing::ConnectedRoute::IntfIdAndPrefix",
                                           {"intfId", "genPrefix"}, Hashable::yes);
   Vok::registerValueType<IntfIdAndAddr>("Routing::ConnectedRoute::IntfIdAndAddr",
                                         {"intfId", "addrWithMask"}, Hashable::yes);
   Vok::registerValueType<ConnectedRouteProperty>("Routing::ConnectedRoute::ConnectedRouteProperty",
                                                  {"routeType", "viaSetKey"});
   Vok::registerValueType<IntfViaSetKey>(
         "Routing::ConnectedRoute::IntfViaSetKey",
         {"intfId", "viaKey", "viaSetKey", "rxViaSetKey", "rxBcastViaSetKey",
          "directedBcastViaSetKey"});
   return true;
}();

auto parseIntfId = [](std::string_view t) { return Ovel::IntfId::parse(t); };
auto parseViaSetKey = [](std::string_view t) { return Rib::ViaSetKey::parse(t); };

}  // namespace

std::uint32_t oneAtATimeAdd(std::uint32_t hash, const void* bytes, std::size_t size) noexcept {
   const auto* p = static_cast<const unsigned char*>(bytes);
   for (std::size_t i = 0; i < size; ++i) {
      hash += p[i];
      hash += hash << 10;
      hash ^= hash >> 6;
   }
   return hash;
}

// Records come in runs for one interface (an address gives four prefixes,
// each keyed twice), and the name is more than half of a record's bytes:
// the last name's part of the hash is kept.
std::uint32_t oneAtATimeOfIntfId(const Ovel::IntfId& intfId) noexcept {
   thread_local Ovel::IntfId lastIntfId;
   thread_local std::uint32_t lastHash = oneAtATimeAdd(0, &lastIntfId, sizeof(lastIntfId));
   if (!(intfId == lastIntfId)) {
      lastIntfId = intfId;
      lastHash = oneAtATimeAdd(0, &intfId, sizeof(intfId));
   }
   return lastHash;
}

std::uint32_t oneAtATimeFinish(std::uint32_t hash) noexcept {
   hash += hash << 3;
   hash ^= hash >> 11;
   hash += hash << 15;
   return hash;
}

std::string IntfIdAndPrefix::toString() const {
   return std::string(kPrefixOpen) + "'intfId': " + intfId().toString() +
          ", 'genPrefix': " + genPrefix().toString() + std::string(kClose);
}

IntfIdAndPrefix IntfIdAndPrefix::parse(std::string_view text) {
   (void)registered;
   RecordText r(text, "IntfIdAndPrefix");
   r.expect(kPrefixOpen);
   r.expect("'intfId': ");
   auto intfId = r.field("intfId", ", 'genPrefix': ", parseIntfId);
   auto prefix = r.field("genPrefix", kClose, Ovel::IpGenPrefix::parse);
   r.expectEnd();
   return IntfIdAndPrefix(intfId, prefix);
}

std::string IntfIdAndAddr::toString() const {
   return std::string(kAddrOpen) + "'intfId': " + intfId().toString() +
          ", 'addrWithMask': " + addrWithMask().toString() + std::string(kClose);
}

IntfIdAndAddr IntfIdAndAddr::parse(std::string_view text) {
   RecordText r(text, "IntfIdAndAddr");
   r.expect(kAddrOpen);
   r.expect("'intfId': ");
   auto intfId = r.field("intfId", ", 'addrWithMask': ", parseIntfId);
   auto addr = r.field("addrWithMask", kClose, Ovel::IpGenAddrWithMask::parse);
   r.expectEnd();
   return IntfIdAndAddr(intfId, addr);
}

std::string ConnectedRouteProperty::toString() const {
   return std::string(kPropertyOpen) + "'routeType': " + Fib::toString(routeType_) +
          ", 'viaSetKey': " + viaSetKey_.toString() + std::string(kClose);
}

ConnectedRouteProperty ConnectedRouteProperty::parse(std::string_view text) {
   RecordText r(text, "ConnectedRouteProperty");
   r.expect(kPropertyOpen);
   r.expect("'routeType': ");
   auto type = r.field("routeType", ", 'viaSetKey': ", Fib::parseRouteType);
   auto key = r.field("viaSetKey", kClose, parseViaSetKey);
   r.expectEnd();
   return ConnectedRouteProperty(type, key);
}

std::string IntfViaSetKey::toString() const {
   return std::string(kViaSetKeyOpen) + "'intfId': " + intfId_.toString() +
          ", 'viaKey': " + viaKey_.toString() + ", 'viaSetKey': " + viaSetKey_.toString() +
          ", 'rxViaSetKey': " + rxViaSetKey_.toString() +
          ", 'rxBcastViaSetKey': " + rxBcastViaSetKey_.toString() +
          ", 'directedBcastViaSetKey': " + directedBcastViaSetKey_.toString() +
          std::string(kClose);
}

IntfViaSetKey IntfViaSetKey::parse(std::string_view text) {
   RecordText r(text, "IntfViaSetKey");
   r.expect(kViaSetKeyOpen);
   r.expect("'intfId': ");
   auto intfId = r.field("intfId", ", 'viaKey': ", parseIntfId);
   auto viaKey = r.field("viaKey", ", 'viaSetKey': ", Rib::ViaKey::parse);
   auto viaSetKey = r.field("viaSetKey", ", 'rxViaSetKey': ", parseViaSetKey);
   auto rx = r.field("rxViaSetKey", ", 'rxBcastViaSetKey': ", parseViaSetKey);
   auto rxBcast = r.field("rxBcastViaSetKey", ", 'directedBcastViaSetKey': ", parseViaSetKey);
   auto directed = r.field("directedBcastViaSetKey", kClose, parseViaSetKey);
   r.expectEnd();
   return IntfViaSetKey(intfId, viaKey, viaSetKey, rx, rxBcast, directed);
}

std::ostream& operator<<(std::ostream& os, const IntfIdAndPrefix& v) { return os << v.toString(); }
std::ostream& operator<<(std::ostream& os, const IntfIdAndAddr& v) { return os << v.toString(); }
std::ostream& operator<<(std::ostream& os, const ConnectedRouteProperty& v) {
   return os << v.toString();
}
std::ostream& operator<<(std::ostream& os, const IntfViaSetKey& v) { return os << v.toString(); }

}  // namespace Routing::ConnectedRoute
