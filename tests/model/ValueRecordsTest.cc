// The value records: conjunctive ordering, text forms and their parsers,
// the one-at-a-time hash, and which records the registry may hash.
#include "model/ValueRecords.h"

#include <gtest/gtest.h>

#include "platform/vok/TypeRegistry.h"
#include "tests/support/InstallerHarness.h"

namespace Routing::ConnectedRoute {
namespace {

using Testing::addr;
using Testing::intf;
using Testing::prefix;

TEST(IntfIdAndPrefix, OrderingIsConjunctive) {
   const IntfIdAndPrefix e1p1(intf("Ethernet1"), prefix("10.0.0.0/24"));
   const IntfIdAndPrefix e1p2(intf("Ethernet1"), prefix("10.0.1.0/24"));
   const IntfIdAndPrefix e2p1(intf("Ethernet2"), prefix("10.0.0.0/24"));
   const IntfIdAndPrefix e2p2(intf("Ethernet2"), prefix("10.0.1.0/24"));
   struct Row {
      const char* name;
      IntfIdAndPrefix a, b;
      bool lt, le, ge, gt;
   };
   for (const Row& r : {
              Row{"same interface", e1p1, e1p2, false, true, true, false},
              Row{"same interface reversed", e1p2, e1p1, false, true, true, false},
              Row{"both less", e1p1, e2p2, true, true, false, false},
              // Crossed fields: neither is less, so each is <= and >= the other.
              Row{"crossed", e1p2, e2p1, false, true, true, false},
              Row{"crossed reversed", e2p1, e1p2, false, true, true, false},
              Row{"equal", e1p1, e1p1, false, true, true, false},
        }) {
      SCOPED_TRACE(r.name);
      EXPECT_EQ(r.a < r.b, r.lt);
      EXPECT_EQ(r.a <= r.b, r.le);
      EXPECT_EQ(r.a >= r.b, r.ge);
      EXPECT_EQ(r.a > r.b, r.gt);
   }
}

TEST(IntfIdAndAddr, OrderingIsConjunctiveToo) {
   const IntfIdAndAddr a(intf("Ethernet1"), addr("10.0.0.9/24"));
   const IntfIdAndAddr b(intf("Ethernet2"), addr("10.0.0.1/24"));
   const IntfIdAndAddr c(intf("Ethernet2"), addr("10.0.0.10/24"));
   EXPECT_FALSE(a < b);
   EXPECT_FALSE(b < a);
   EXPECT_TRUE(a <= b && b <= a);  // not antisymmetric: a != b
   EXPECT_TRUE(a < c);
   EXPECT_FALSE(c <= a);
   EXPECT_TRUE(c > a);
}

TEST(ValueRecords, TextFormsRoundTrip) {
   const IntfIdAndPrefix p(intf("Ethernet1"), prefix("10.1.1.0/24"));
   EXPECT_EQ(p.toString(),
             "Value('Routing::ConnectedRoute::IntfIdAndPrefix', ** {'intfId': Ethernet1, "
             "'genPrefix': 10.1.1.0/24})");
   EXPECT_EQ(IntfIdAndPrefix::parse(p.toString()), p);

   const IntfIdAndAddr a(intf("Vlan100"), addr("2001:db8::1/64"));
   EXPECT_EQ(a.toString(),
             "Value('Routing::ConnectedRoute::IntfIdAndAddr', ** {'intfId': Vlan100, "
             "'addrWithMask': 2001:db8::1/64})");
   EXPECT_EQ(IntfIdAndAddr::parse(a.toString()), a);

   const ConnectedRouteProperty c(Fib::RouteType::attachedSubnet, Rib::ViaSetKey(5));
   EXPECT_EQ(c.toString(),
             "Value('Routing::ConnectedRoute::ConnectedRouteProperty', ** {'routeType': 11, "
             "'viaSetKey': 5})");
   EXPECT_EQ(ConnectedRouteProperty::parse(c.toString()), c);

   const IntfViaSetKey k(intf("Ethernet2"), Rib::ViaKey(1, 7, 3), Rib::ViaSetKey(1),
                         Rib::ViaSetKey(2), Rib::ViaSetKey(3), Rib::ViaSetKey(4));
   EXPECT_EQ(k.toString(),
             "Value('Routing::ConnectedRoute::IntfViaSetKey', ** {'intfId': Ethernet2, "
             "'viaKey': 1:7:3, 'viaSetKey': 1, 'rxViaSetKey': 2, 'rxBcastViaSetKey': 3, "
             "'directedBcastViaSetKey': 4})");
   EXPECT_EQ(IntfViaSetKey::parse(k.toString()), k);
   EXPECT_EQ(IntfViaSetKey::parse(IntfViaSetKey().toString()), IntfViaSetKey());
}

TEST(ValueRecords, ParseRejectsFixedPiecesAndNamesTheFailingField) {
   const std::string good = IntfIdAndPrefix(intf("Ethernet1"), prefix("10.1.1.0/24")).toString();
   struct Row {
      std::string text;
      std::string attribute;  // empty: a fixed piece failed
   };
   for (const Row& r : {
              Row{good.substr(0, good.size() - 2), "genPrefix"},  // missing "})"
              Row{good + " ", ""},
              Row{"Value('Routing::ConnectedRoute::IntfIdAndAddr', ** {'intfId': Ethernet1, "
                  "'genPrefix': 10.1.1.0/24})",
                  ""},
              Row{"Value('Routing::ConnectedRoute::IntfIdAndPrefix', ** {'intfId': Eth ernet1, "
                  "'genPrefix': 10.1.1.0/24})",
                  "intfId"},
              Row{"Value('Routing::ConnectedRoute::IntfIdAndPrefix', ** {'intfId': Ethernet1, "
                  "'genPrefix': 10.1.1.5/24})",
                  "genPrefix"},
        }) {
      SCOPED_TRACE(r.text);
      try {
         IntfIdAndPrefix::parse(r.text);
         ADD_FAILURE() << "parsed";
      } catch (const Vok::ParseError& e) {
         EXPECT_EQ(e.attribute(), r.attribute) << e.what();
      }
   }
   EXPECT_THROW(ConnectedRouteProperty::parse(
                      "Value('Routing::ConnectedRoute::ConnectedRouteProperty', ** "
                      "{'routeType': 5, 'viaSetKey': 1})"),
                Vok::ParseError);
}

TEST(ValueRecords, HashIsOneAtATimeOverBothFields) {
   const IntfIdAndPrefix p(intf("Ethernet1"), prefix("10.1.1.0/24"));
   EXPECT_EQ(p.hash(), IntfIdAndPrefix::parse(p.toString()).hash());
   EXPECT_NE(p.hash(), IntfIdAndPrefix(intf("Ethernet1"), prefix("10.1.1.0/25")).hash());
   // The one-at-a-time hash of a single zero byte is 0; of "a" it is known.
   EXPECT_EQ(oneAtATimeFinish(oneAtATimeAdd(0, "a", 1)), 0xCA2E9442u);
}

TEST(ValueRecords, RegistryHashesOnlyTheKeyedRecords) {
   std::any keyed = IntfIdAndAddr(intf("Ethernet1"), addr("10.0.0.1/8"));
   EXPECT_EQ(Vok::genericHash("Routing::ConnectedRoute::IntfIdAndAddr", keyed),
             std::any_cast<IntfIdAndAddr>(keyed).hash());
   EXPECT_THROW(Vok::genericHash("Routing::ConnectedRoute::IntfViaSetKey", std::any(IntfViaSetKey())),
                Vok::UnhashableTypeError);
   EXPECT_THROW(Vok::genericHash("Routing::ConnectedRoute::ConnectedRouteProperty",
                                 std::any(ConnectedRouteProperty())),
                Vok::UnhashableTypeError);
   EXPECT_EQ(Vok::genericStrep("Routing::ConnectedRoute::ConnectedRouteProperty",
                               std::any(ConnectedRouteProperty())),
             ConnectedRouteProperty().toString());
}

}  // namespace
}  // namespace Routing::ConnectedRoute
