// A route table's views: a writer and a reader share one contents, and the
// reader refuses every change with the text of its kind.
#include "platform/rib/RouteConfig.h"

#include <gtest/gtest.h>

#include <functional>

#include "platform/belm/Exceptions.h"

namespace Routing {
namespace {

namespace Rib = Routing::Rib;

TEST(RouteConfig, AReadOnlyViewRefusesEveryChangeWithItsText) {
   std::shared_ptr<Plim::Backing> backing;
   auto writer = Rib::RouteConfig::attach(backing, true);
   auto reader = Rib::RouteConfig::attach(backing, false);
   Rib::Route r;
   r.prefix = Ovel::IpGenPrefix::parse("10.0.0.0/8");
   writer->routeAdd(r);
   EXPECT_TRUE(reader->route(Ovel::IpGenPrefix::parse("10.0.0.0/8")));  // one contents, two views
   struct Row {
      std::function<void()> change;
      const char* text;
   };
   for (const Row& row : {Row{[&] { reader->routeAdd(r); },
                              "write to read-only Plim table"},
                          Row{[&] { reader->routeDel(Ovel::IpGenPrefix::parse("10.0.0.0/8")); },
                              "remove to read-only Plim table"},
                          Row{[&] { reader->routeDelAll(); }, "cleanup to read-only Plim table"}}) {
      try {
         row.change();
         ADD_FAILURE() << "accepted";
      } catch (const Belm::NoPermissionException& e) {
         EXPECT_STREQ(e.what(), row.text);
      }
   }
   EXPECT_EQ(writer->routeCount(), 1u);
}

}  // namespace
}  // namespace Routing
