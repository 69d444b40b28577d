// Namespace names: the size limit with its exact error text, the default
// namespace, and the parser's refusal of surrounding whitespace.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/ovel/NamespaceName.h"
#include "tests/platform/ValueTextChecks.h"

namespace Ovel {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;

TEST(NamespaceNameTest, LengthLimitIs150Bytes) {
   EXPECT_EQ(NamespaceName(std::string(150, 'n')).str().size(), 150u);
   expectRoundTrip<NamespaceName>(std::string(150, 'n'));
   EXPECT_THAT([] { NamespaceName name(std::string(151, 'n')); },
               testing::ThrowsMessage<std::range_error>("NamespaceName::bytes > 150 not allowed"));
   expectParseError<NamespaceName>(std::string(151, 'n'),
                                   "NamespaceName::bytes > 150 not allowed");
}

TEST(NamespaceNameTest, DefaultNamespace) {
   EXPECT_EQ(NamespaceName::defaultNamespace().str(), "default");
   EXPECT_EQ(NamespaceName::parse("default"), NamespaceName::defaultNamespace());
   EXPECT_NE(NamespaceName(), NamespaceName::defaultNamespace());
}

TEST(NamespaceNameTest, TextAndOrder) {
   for (auto text : {"", "default", "ns-mgmt", "a b"}) {
      expectRoundTrip<NamespaceName>(text);
   }
   for (auto text : {" ns", "ns ", "ns\n", "\tns"}) {
      expectParseError<NamespaceName>(text, "surrounding whitespace in namespace name");
   }
   EXPECT_LT(NamespaceName("blue"), NamespaceName("default"));
}

}  // namespace
}  // namespace Ovel
