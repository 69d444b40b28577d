// Route rows written directly as JSON read exactly as the generic writer
// would print them, whatever the owner's name holds.
#include <gtest/gtest.h>

#include "app/RowJson.h"

namespace {

TEST(RowJsonTest, DirectRouteLinesEqualTheGenericWriters) {
   const std::vector<std::string> owners = {
         "Ethernet1", "-", "", "quote\"inside", "back\\slash", "tab\there", "new\nline",
         "caf\xc3\xa9", "bad\xff" "utf8", std::string("nul\0byte", 8), "del\x7f"};
   for (const std::string& owner : owners) {
      SCOPED_TRACE(owner);
      const App::RouteRow row{"2001:db8::/64", 11, 4294967295u, owner, 1, 2, 3, 4294967295u, 7};
      EXPECT_EQ(App::routeJsonText(row), App::jsonText(App::routeJson(row)));
   }
}

}  // namespace
