// Interface addresses with mask lengths: the subnet and broadcast arithmetic
// at the edge lengths, the length limits, and the "addr/len" text form.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/ovel/Ip6AddrWithMask.h"
#include "platform/ovel/IpAddrWithMask.h"
#include "tests/platform/ValueTextChecks.h"

namespace Ovel {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;

TEST(IpAddrWithMaskTest, SubnetAndBroadcast) {
   struct Row {
      std::string text;
      uint32_t mask;
      std::string subnet;
      std::string broadcast;
   };
   const Row rows[] = {
         {"10.1.1.5/0", 0x00000000, "0.0.0.0", "255.255.255.255"},
         {"10.1.1.5/1", 0x80000000, "0.0.0.0", "127.255.255.255"},
         {"10.1.1.5/24", 0xffffff00, "10.1.1.0", "10.1.1.255"},
         {"10.1.1.5/30", 0xfffffffc, "10.1.1.4", "10.1.1.7"},
         {"10.1.1.5/31", 0xfffffffe, "10.1.1.4", "10.1.1.5"},
         {"10.1.1.5/32", 0xffffffff, "10.1.1.5", "10.1.1.5"},
   };
   for (const auto& row : rows) {
      SCOPED_TRACE(row.text);
      auto addr = IpAddrWithMask::parse(row.text);
      EXPECT_EQ(addr.addr(), IpAddr::parse("10.1.1.5"));
      EXPECT_EQ(addr.mask(), row.mask);
      EXPECT_EQ(addr.subnet(), IpAddr::parse(row.subnet));
      EXPECT_EQ(addr.broadcast(), IpAddr::parse(row.broadcast));
   }
}

TEST(Ip6AddrWithMaskTest, Subnet) {
   struct Row {
      std::string text;
      std::string subnet;
   };
   const Row rows[] = {
         {"2001:db8:1:2:3:4:5:6/0", "::"},
         {"ffff:ffff::/12", "fff0::"},
         {"2001:db8:1:2:3:4:5:6/64", "2001:db8:1:2::"},
         {"2001:db8::ffff:0:0:1/65", "2001:db8:0:0:8000::"},
         {"2001:db8::3/127", "2001:db8::2"},
         {"2001:db8::3/128", "2001:db8::3"},
   };
   for (const auto& row : rows) {
      SCOPED_TRACE(row.text);
      EXPECT_EQ(Ip6AddrWithMask::parse(row.text).subnet(), Ip6Addr::parse(row.subnet));
   }
}

TEST(AddrWithMaskTest, LengthLimitPerFamily) {
   using testing::ThrowsMessage;
   EXPECT_EQ(IpAddrWithMask(IpAddr(1), 32).len(), 32);
   EXPECT_EQ(Ip6AddrWithMask(Ip6Addr(), 128).len(), 128);
   EXPECT_THAT([] { IpAddrWithMask(IpAddr(1), 33); },
               ThrowsMessage<std::range_error>("mask length 33 out of range for IPv4"));
   EXPECT_THAT([] { Ip6AddrWithMask(Ip6Addr(), 129); },
               ThrowsMessage<std::range_error>("mask length 129 out of range for IPv6"));
}

TEST(AddrWithMaskTest, Text) {
   EXPECT_EQ(IpAddrWithMask().toString(), "0.0.0.0/0");
   EXPECT_EQ(Ip6AddrWithMask().toString(), "::/0");
   for (auto text : {"10.1.1.5/24", "255.255.255.255/32"}) {
      expectRoundTrip<IpAddrWithMask>(text);
   }
   for (auto text : {"2001:db8::1/64", "fe80::1/128"}) {
      expectRoundTrip<Ip6AddrWithMask>(text);
   }
   struct Row {
      std::string text;
      std::string reason;
   };
   const Row v4Rows[] = {
         {"10.1.1.5", "missing '/'"},
         {"10.1.1.5/", "mask length '' in '10.1.1.5/' is empty"},
         {"10.1.1.5/33", "mask length 33 out of range for IPv4"},
         // 2^64 + 24: a length that wrapped instead of saturating would pass.
         {"10.1.1.5/18446744073709551640", "out of range for IPv4"},
         {"10.1.1.5/024", "leading zero"},
         {"10.1.1.5/24 ", "not a decimal number"},
         {"10.1.1.5/2/4", "not a decimal number"},
         {"10.1.1.256/24", "bad IPv4 address '10.1.1.256'"},
   };
   for (const auto& row : v4Rows) {
      expectParseError<IpAddrWithMask>(row.text, row.reason);
   }
   const Row v6Rows[] = {
         {"2001:db8::1/129", "mask length 129 out of range for IPv6"},
         {"10.1.1.5/24", "bad IPv6 address '10.1.1.5'"},
   };
   for (const auto& row : v6Rows) {
      expectParseError<Ip6AddrWithMask>(row.text, row.reason);
   }
}

TEST(AddrWithMaskTest, OrdersByAddressThenLength) {
   EXPECT_LT(IpAddrWithMask::parse("10.1.1.5/24"), IpAddrWithMask::parse("10.1.1.5/25"));
   EXPECT_LT(IpAddrWithMask::parse("10.1.1.5/25"), IpAddrWithMask::parse("10.1.1.6/8"));
   EXPECT_LT(Ip6AddrWithMask::parse("::1/128"), Ip6AddrWithMask::parse("::2/1"));
}

}  // namespace
}  // namespace Ovel
