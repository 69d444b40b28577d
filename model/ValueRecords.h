// The four value records of the connected-route model: who claims which
// prefix (IntfIdAndPrefix), which interface address (IntfIdAndAddr), what
// route an address asks for (ConnectedRouteProperty), and the via keys
// allocated for an interface (IntfViaSetKey).
//
// They are plain values. The ordering of the two keyed records is
// deliberately conjunctive (a < b only when both fields are less), because
// code that compares keys generically sees exactly that relation; no
// collection relies on it. hash() is the one-at-a-time hash over the bytes
// of both fields, so equal records hash equal.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/ovel/IntfId.h"
#include "platform/ovel/IpGenAddrWithMask.h"
#include "platform/ovel/IpGenPrefix.h"
#include "platform/rib/RouteType.h"
#include "platform/rib/ViaKey.h"
#include "platform/rib/ViaSetKey.h"

namespace Routing::ConnectedRoute {

// One-at-a-time hash of a byte range, continuing from `hash`; finish with
// oneAtATimeFinish.
std::uint32_t oneAtATimeAdd(std::uint32_t hash, const void* bytes, std::size_t size) noexcept;
std::uint32_t oneAtATimeFinish(std::uint32_t hash) noexcept;
// oneAtATimeAdd(0, &intfId, sizeof intfId): the part every keyed record
// starts with.
std::uint32_t oneAtATimeOfIntfId(const Ovel::IntfId& intfId) noexcept;

// The shared shape of IntfIdAndPrefix and IntfIdAndAddr: an interface and a
// second field, with the conjunctive ordering and the byte hash.
template <class Second, class Tag>
class IntfIdAnd {
 public:
   IntfIdAnd() = default;
   IntfIdAnd(Ovel::IntfId intfId, Second second) : intfId_(intfId), second_(second) {}

   const Ovel::IntfId& intfId() const noexcept { return intfId_; }

   friend bool operator==(const IntfIdAnd& a, const IntfIdAnd& b) {
      return a.intfId_ == b.intfId_ && a.second_ == b.second_;
   }
   friend bool operator<(const IntfIdAnd& a, const IntfIdAnd& b) {
      return a.intfId_ < b.intfId_ && a.second_ < b.second_;
   }
   friend bool operator<=(const IntfIdAnd& a, const IntfIdAnd& b) { return !(b < a); }
   friend bool operator>=(const IntfIdAnd& a, const IntfIdAnd& b) { return !(a < b); }
   friend bool operator>(const IntfIdAnd& a, const IntfIdAnd& b) { return !(a <= b); }

   // Computed when asked, not kept: the maps these records pass through most
   // (the backlog, a prefix's single candidate) never ask, and a kept hash
   // cost its byte-serial computation for every record built, and four
   // bytes in each. The maps that do ask keep each entry's hash beside it.
   std::uint32_t hash() const noexcept {
      const std::uint32_t h = oneAtATimeOfIntfId(intfId_);
      return oneAtATimeFinish(oneAtATimeAdd(h, &second_, sizeof(second_)));
   }

 protected:
   const Second& second() const noexcept { return second_; }

 private:
   Ovel::IntfId intfId_;
   Second second_;
};

struct PrefixTag;
struct AddrTag;

class IntfIdAndPrefix : public IntfIdAnd<Ovel::IpGenPrefix, PrefixTag> {
 public:
   using IntfIdAnd::IntfIdAnd;
   const Ovel::IpGenPrefix& genPrefix() const noexcept { return second(); }
   std::string toString() const;
   static IntfIdAndPrefix parse(std::string_view text);
};

class IntfIdAndAddr : public IntfIdAnd<Ovel::IpGenAddrWithMask, AddrTag> {
 public:
   using IntfIdAnd::IntfIdAnd;
   const Ovel::IpGenAddrWithMask& addrWithMask() const noexcept { return second(); }
   std::string toString() const;
   static IntfIdAndAddr parse(std::string_view text);
};

static_assert(std::has_unique_object_representations_v<IntfIdAndPrefix>);
static_assert(std::has_unique_object_representations_v<IntfIdAndAddr>);

class ConnectedRouteProperty {
 public:
   ConnectedRouteProperty() = default;
   ConnectedRouteProperty(Fib::RouteType routeType, Rib::ViaSetKey viaSetKey)
         : routeType_(routeType), viaSetKey_(viaSetKey) {}

   Fib::RouteType routeType() const noexcept { return routeType_; }
   Rib::ViaSetKey viaSetKey() const noexcept { return viaSetKey_; }
   // No route asked for: every field at its default.
   bool isEmpty() const noexcept { return *this == ConnectedRouteProperty(); }

   friend bool operator==(const ConnectedRouteProperty&, const ConnectedRouteProperty&) = default;
   std::string toString() const;
   static ConnectedRouteProperty parse(std::string_view text);

 private:
   Fib::RouteType routeType_ = Fib::RouteType::none;
   Rib::ViaSetKey viaSetKey_;
};

class IntfViaSetKey {
 public:
   IntfViaSetKey() = default;
   IntfViaSetKey(Ovel::IntfId intfId, Rib::ViaKey viaKey, Rib::ViaSetKey viaSetKey,
                 Rib::ViaSetKey rxViaSetKey, Rib::ViaSetKey rxBcastViaSetKey,
                 Rib::ViaSetKey directedBcastViaSetKey)
         : intfId_(intfId),
           viaKey_(viaKey),
           viaSetKey_(viaSetKey),
           rxViaSetKey_(rxViaSetKey),
           rxBcastViaSetKey_(rxBcastViaSetKey),
           directedBcastViaSetKey_(directedBcastViaSetKey) {}

   const Ovel::IntfId& intfId() const noexcept { return intfId_; }
   Rib::ViaKey viaKey() const noexcept { return viaKey_; }
   Rib::ViaSetKey viaSetKey() const noexcept { return viaSetKey_; }
   Rib::ViaSetKey rxViaSetKey() const noexcept { return rxViaSetKey_; }
   Rib::ViaSetKey rxBcastViaSetKey() const noexcept { return rxBcastViaSetKey_; }
   Rib::ViaSetKey directedBcastViaSetKey() const noexcept { return directedBcastViaSetKey_; }
   bool isEmpty() const noexcept { return *this == IntfViaSetKey(); }

   friend bool operator==(const IntfViaSetKey&, const IntfViaSetKey&) = default;
   std::string toString() const;
   static IntfViaSetKey parse(std::string_view text);

 private:
   Ovel::IntfId intfId_;
   Rib::ViaKey viaKey_;
   Rib::ViaSetKey viaSetKey_;
   Rib::ViaSetKey rxViaSetKey_;
   Rib::ViaSetKey rxBcastViaSetKey_;
   Rib::ViaSetKey directedBcastViaSetKey_;
};

std::ostream& operator<<(std::ostream& os, const IntfIdAndPrefix& v);
std::ostream& operator<<(std::ostream& os, const IntfIdAndAddr& v);
std::ostream& operator<<(std::ostream& os, const ConnectedRouteProperty& v);
std::ostream& operator<<(std::ostream& os, const IntfViaSetKey& v);

}  // namespace Routing::ConnectedRoute
