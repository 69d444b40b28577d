// Interface ids: the inline length limit, the allowed characters, name
// ordering, and byte identity of equal ids built in different ways.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/ovel/IntfId.h"
#include "tests/platform/ValueTextChecks.h"

namespace Ovel {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;
using ValueTextChecks::sameBytes;

const std::string name23 = "Port-Channel1000.40001x";  // 23 bytes

TEST(IntfIdTest, TextRoundTrips) {
   ASSERT_EQ(name23.size(), 23u);
   for (std::string text : {std::string(), std::string("Ethernet1"), std::string("Vlan100"),
                            std::string("Port-Channel10.100"), std::string("Ethernet3/1/2"),
                            std::string("Mgmt_a:b"), name23}) {
      expectRoundTrip<IntfId>(text);
      EXPECT_EQ(IntfId(text).name(), text);
   }
}

TEST(IntfIdTest, EmptyMeansNoInterface) {
   EXPECT_TRUE(IntfId().empty());
   EXPECT_TRUE(IntfId("").empty());
   EXPECT_EQ(IntfId(), IntfId::parse(""));
   EXPECT_FALSE(IntfId("x").empty());
}

TEST(IntfIdTest, LengthLimitIs23Bytes) {
   const std::string name24 = name23 + "y";
   EXPECT_THAT([&] { IntfId id(name24); },
               testing::ThrowsMessage<std::range_error>("IntfId::bytes > 23 not allowed"));
   expectParseError<IntfId>(name24, "IntfId::bytes > 23 not allowed");
}

TEST(IntfIdTest, RejectsCharactersOutsideTheNameSet) {
   struct Row {
      std::string text;
      std::string shown;
   };
   const Row rows[] = {
         {"Ethernet 1", "' '"}, {"Eth%1", "'%'"},         {"Eth,1", "','"},
         {"Eth\t1", "0x09"},    {std::string("Eth\0x", 5), "0x00"},
         {"\xc3\x89th", "0xc3"}, {"Eth1\x7f", "0x7f"},
   };
   for (const auto& row : rows) {
      SCOPED_TRACE(row.shown);
      std::string reason = "bad character " + row.shown + " in interface name";
      EXPECT_THAT([&] { IntfId id(row.text); },
                  testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr(reason)));
      expectParseError<IntfId>(row.text, reason);
   }
}

TEST(IntfIdTest, OrdersByName) {
   EXPECT_LT(IntfId(), IntfId("A"));
   EXPECT_LT(IntfId("Eth"), IntfId("Ethernet"));
   EXPECT_LT(IntfId("Ethernet1"), IntfId("Ethernet10"));
   EXPECT_LT(IntfId("Ethernet10"), IntfId("Ethernet2"));
   EXPECT_LT(IntfId("Port-Channel1"), IntfId("Vlan1"));
}

TEST(IntfIdTest, EqualIdsHaveIdenticalBytes) {
   IntfId constructed("Ethernet1");
   IntfId parsed = IntfId::parse("Ethernet1");
   IntfId reassigned(name23);
   reassigned = IntfId("Ethernet1");
   EXPECT_TRUE(sameBytes(constructed, parsed));
   EXPECT_TRUE(sameBytes(constructed, reassigned));
   EXPECT_TRUE(sameBytes(IntfId(), IntfId::parse("")));
}

}  // namespace
}  // namespace Ovel
