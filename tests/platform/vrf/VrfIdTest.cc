// VRF ids: the invalid marker as default and its single text spelling, and
// the strict decimal form of valid ids.
#include <gtest/gtest.h>

#include <string>

#include "platform/vrf/VrfId.h"
#include "tests/platform/ValueTextChecks.h"

namespace Vrf::VrfIdMap {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;

TEST(VrfIdTest, InvalidIsAllOnesAndTheDefault) {
   EXPECT_EQ(VrfId::invalid().value(), 0xffffffffu);
   EXPECT_FALSE(VrfId::invalid().isValid());
   EXPECT_EQ(VrfId(), VrfId::invalid());
   EXPECT_TRUE(VrfId(0).isValid());
   EXPECT_EQ(VrfId::parse("invalid"), VrfId::invalid());
}

TEST(VrfIdTest, TextRoundTripsAndRejects) {
   for (auto text : {"0", "1", "4096", "4294967294", "invalid"}) {
      expectRoundTrip<VrfId>(text);
   }
   struct Row {
      std::string text;
      std::string reason;
   };
   const Row rows[] = {
         {"4294967295", "VRF id 4294967295 out of range"},
         {"4294967296", "out of range"},
         {"01", "leading zero"},
         {"-1", "not a decimal number"},
         {"Invalid", "not a decimal number"},
   };
   for (const auto& row : rows) {
      expectParseError<VrfId>(row.text, row.reason);
   }
   EXPECT_LT(VrfId(2), VrfId(10));
}

}  // namespace
}  // namespace Vrf::VrfIdMap
