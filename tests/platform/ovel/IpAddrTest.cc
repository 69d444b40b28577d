// Address family and single-address types: their text forms, the strictness
// of their parsers, and the orderings tables rely on.
#include <gtest/gtest.h>

#include <cstdio>

#include <sstream>
#include <string>
#include <vector>

#include "platform/ovel/AddressFamily.h"
#include "platform/ovel/Ip6Addr.h"
#include "platform/ovel/IpAddr.h"
#include "tests/platform/ValueTextChecks.h"

namespace Ovel {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;

TEST(AddressFamilyTest, Text) {
   for (auto af : {AddressFamily::unknown, AddressFamily::ipv4, AddressFamily::ipv6}) {
      SCOPED_TRACE(static_cast<int>(af));
      EXPECT_EQ(parseAddressFamily(toString(af)), af);
   }
   // A one-byte enum would otherwise stream as a raw character.
   std::ostringstream os;
   os << AddressFamily::ipv6;
   EXPECT_EQ(os.str(), "ipv6");
   for (std::string text : {"IPv4", "ipv4 ", "", "2"}) {
      expectParseError(parseAddressFamily, text, "bad address family '" + text + "'");
   }
}

TEST(IpAddrTest, TextAndValue) {
   for (auto text : {"0.0.0.0", "10.1.1.5", "255.255.255.255"}) {
      expectRoundTrip<IpAddr>(text);
   }
   EXPECT_EQ(IpAddr::parse("10.1.2.3").value(), 0x0a010203u);
   EXPECT_TRUE(IpAddr().isZero());
   EXPECT_FALSE(IpAddr::parse("0.0.0.1").isZero());
   // Numeric, not textual, order.
   EXPECT_LT(IpAddr::parse("9.255.255.255"), IpAddr::parse("10.0.0.0"));
}

TEST(IpAddrTest, TextOfEveryOctetInEveryPlaceStaysInItsRoom) {
   for (unsigned octet = 0; octet < 256; ++octet) {
      for (int place = 0; place < 4; ++place) {
         const std::uint32_t value = (0x01020304u & ~(0xffu << (8 * place))) | octet << (8 * place);
         char expected[16];
         std::snprintf(expected, sizeof(expected), "%u.%u.%u.%u", value >> 24, value >> 16 & 0xff,
                       value >> 8 & 0xff, value & 0xff);
         char room[IpAddr::kMaxChars + 1];
         room[IpAddr::kMaxChars] = '#';
         const char* end = IpAddr(value).toChars(room);
         ASSERT_EQ(std::string_view(room, std::size_t(end - room)), expected);
         ASSERT_EQ(room[IpAddr::kMaxChars], '#') << expected;
      }
   }
}

TEST(IpAddrTest, RejectsNonCanonicalText) {
   struct Row {
      std::string text;
      std::string reason;
   };
   const Row rows[] = {
         {"10.1.1.256", "bad IPv4 address '10.1.1.256': octet 256 exceeds 255"},
         // 2^64 + 1: an octet that wrapped instead of saturating would pass.
         {"10.1.1.18446744073709551617", "exceeds 255"},
         {"010.1.1.1", "leading zero"},
         {"10.1.1", "expected 4 octets, found 3"},
         {"10.1.1.1.1", "expected 4 octets, found 5"},
         {"10..1.1", "octet '' is empty"},
         {" 10.1.1.1", "not a decimal number"},
         {"10.1.1.1 ", "not a decimal number"},
         {"+1.1.1.1", "not a decimal number"},
   };
   for (const auto& row : rows) {
      expectParseError<IpAddr>(row.text, row.reason);
   }
}

TEST(Ip6AddrTest, PrintsCanonically) {
   for (auto text : {"::", "::1", "2001:db8::1", "ff02::1:ff00:1", "::ffff:10.1.1.5"}) {
      expectRoundTrip<Ip6Addr>(text);
   }
   struct Row {
      std::string text;
      std::string canonical;
   };
   const Row rows[] = {
         {"2001:DB8:0:0::1", "2001:db8::1"},
         {"2001:0db8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
         // A single zero field stays; of equal zero runs the first shrinks.
         {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
         {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
         {"1:0:0:2:0:0:0:3", "1:0:0:2::3"},
   };
   for (const auto& row : rows) {
      SCOPED_TRACE(row.text);
      EXPECT_EQ(Ip6Addr::parse(row.text).toString(), row.canonical);
   }
}

TEST(Ip6AddrTest, RejectsBadText) {
   // The embedded NUL would end the text early for a C-string parser.
   const std::vector<std::string> texts = {
         "2001:db8::1::1", "12345::", " ::1", "::1 ", "fe80::1%eth0", "",
         "1:2:3:4:5:6:7:8:9", "10.1.1.5", std::string("::1\0junk", 8)};
   for (const auto& text : texts) {
      expectParseError<Ip6Addr>(text, "bad IPv6 address");
   }
}

TEST(Ip6AddrTest, LinkLocalIsFe80Slash10) {
   struct Row {
      std::string text;
      bool linkLocal;
   };
   const Row rows[] = {
         {"fe80::1", true}, {"febf:ffff::1", true}, {"fec0::1", false},
         {"fe7f::1", false}, {"ff80::1", false},     {"2001:db8::1", false},
   };
   for (const auto& row : rows) {
      SCOPED_TRACE(row.text);
      EXPECT_EQ(Ip6Addr::parse(row.text).isLinkLocal(), row.linkLocal);
   }
}

TEST(Ip6AddrTest, ZeroAndOrder) {
   EXPECT_TRUE(Ip6Addr().isZero());
   EXPECT_FALSE(Ip6Addr::parse("8000::").isZero());
   EXPECT_FALSE(Ip6Addr::parse("::1").isZero());
   EXPECT_LT(Ip6Addr::parse("2001:db8::2"), Ip6Addr::parse("2001:db8::10"));
   EXPECT_LT(Ip6Addr::parse("::ffff"), Ip6Addr::parse("1::"));
}

}  // namespace
}  // namespace Ovel
