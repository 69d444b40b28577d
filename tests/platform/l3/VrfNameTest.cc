// VRF names: the size limit with its exact error text, hashing for use as an
// unordered key, and the parser's refusal of surrounding whitespace.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <unordered_set>

#include "platform/l3/VrfName.h"
#include "tests/platform/ValueTextChecks.h"

namespace L3 {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;

TEST(VrfNameTest, LengthLimitIs100Bytes) {
   EXPECT_EQ(VrfName(std::string(100, 'v')).str().size(), 100u);
   expectRoundTrip<VrfName>(std::string(100, 'v'));
   EXPECT_THAT([] { VrfName name(std::string(101, 'v')); },
               testing::ThrowsMessage<std::range_error>("VrfName::bytes > 100 not allowed"));
   expectParseError<VrfName>(std::string(101, 'v'), "VrfName::bytes > 100 not allowed");
}

TEST(VrfNameTest, TextEmptyAndOrder) {
   for (auto text : {"", "default", "red", "MGMT-1"}) {
      expectRoundTrip<VrfName>(text);
   }
   for (auto text : {" red", "red ", "red\r\n"}) {
      expectParseError<VrfName>(text, "surrounding whitespace in VRF name");
   }
   EXPECT_TRUE(VrfName().empty());
   EXPECT_FALSE(VrfName("red").empty());
   EXPECT_LT(VrfName("blue"), VrfName("red"));
}

TEST(VrfNameTest, HashesByName) {
   std::unordered_set<VrfName> names{VrfName("red"), VrfName("blue")};
   EXPECT_EQ(names.count(VrfName::parse("red")), 1u);
   EXPECT_EQ(names.count(VrfName("green")), 0u);
   EXPECT_EQ(std::hash<VrfName>{}(VrfName("red")), std::hash<VrfName>{}(VrfName::parse("red")));
}

}  // namespace
}  // namespace L3
