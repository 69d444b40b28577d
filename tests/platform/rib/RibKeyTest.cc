// RIB keys and route types: their text forms, range checks per field, and
// the numeric route-type codes other agents store.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "platform/rib/RouteType.h"
#include "platform/rib/ViaKey.h"
#include "platform/rib/ViaSetKey.h"
#include "tests/platform/ValueTextChecks.h"

namespace Routing {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;

struct Reject {
   std::string text;
   std::string reason;
};

TEST(RouteTypeTest, TextIsTheStoredNumber) {
   struct Row {
      Fib::RouteType type;
      std::string text;
   };
   const Row rows[] = {
         {Fib::RouteType::none, "0"},
         {Fib::RouteType::hostOfSubnetAddress, "1"},
         {Fib::RouteType::hostOfFullLengthAddress, "2"},
         {Fib::RouteType::networkOrBroadcastReceive, "3"},
         {Fib::RouteType::directedBroadcast, "4"},
         {Fib::RouteType::attachedSubnet, "11"},
   };
   for (const auto& row : rows) {
      SCOPED_TRACE(row.text);
      EXPECT_EQ(Fib::toString(row.type), row.text);
      EXPECT_EQ(Fib::parseRouteType(row.text), row.type);
      std::ostringstream os;
      os << row.type;
      EXPECT_EQ(os.str(), row.text);
   }
   for (std::string text : {"5", "10", "12", "011", "", "none", "256", "1 "}) {
      expectParseError(Fib::parseRouteType, text, "bad route type '" + text + "'");
   }
}

TEST(ViaKeyTest, FieldsAndText) {
   EXPECT_EQ(Rib::ViaKey(1, 0, 17).toString(), "1:0:17");
   EXPECT_EQ(Rib::ViaKey::parse("2:7:255"), Rib::ViaKey(2, 7, 255));
   EXPECT_TRUE(Rib::ViaKey().isEmpty());
   EXPECT_FALSE(Rib::ViaKey(0, 0, 1).isEmpty());
   for (auto text : {"0:0:0", "1:0:17", "255:4294967295:4294967295"}) {
      expectRoundTrip<Rib::ViaKey>(text);
   }
   const Reject rows[] = {
         {"1:0", "expected transport:vrfId:id"},
         {"1:0:17:1", "expected transport:vrfId:id"},
         {"1::17", "vrfId '' is empty"},
         {"256:0:1", "transport 256 out of range"},
         {"1:4294967296:1", "vrfId 4294967296 out of range"},
         {"1:0:17 ", "id '17 ' is not a decimal number"},
   };
   for (const auto& row : rows) {
      expectParseError<Rib::ViaKey>(row.text, row.reason);
   }
   EXPECT_LT(Rib::ViaKey(1, 5, 0), Rib::ViaKey(2, 0, 0));
   EXPECT_LT(Rib::ViaKey(1, 0, 9), Rib::ViaKey(1, 1, 0));
}

TEST(ViaSetKeyTest, Text) {
   EXPECT_TRUE(Rib::ViaSetKey().isEmpty());
   EXPECT_FALSE(Rib::ViaSetKey(3).isEmpty());
   for (auto text : {"0", "42", "4294967295"}) {
      expectRoundTrip<Rib::ViaSetKey>(text);
   }
   const Reject rows[] = {
         {"4294967296", "via set key 4294967296 out of range"},
         {"01", "leading zero"},
         {"0x10", "not a decimal number"},
   };
   for (const auto& row : rows) {
      expectParseError<Rib::ViaSetKey>(row.text, row.reason);
   }
   EXPECT_LT(Rib::ViaSetKey(9), Rib::ViaSetKey(10));
}

}  // namespace
}  // namespace Routing
