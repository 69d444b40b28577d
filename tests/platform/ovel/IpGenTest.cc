// The family-generic address, prefix and address-with-mask types: host-bit
// handling, family dispatch in the text forms, the table order of prefixes,
// and byte identity of equal keys however they were built.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/ovel/IpGenAddr.h"
#include "platform/ovel/IpGenAddrWithMask.h"
#include "platform/ovel/IpGenPrefix.h"
#include "tests/platform/ValueTextChecks.h"

namespace Ovel {
namespace {

using ValueTextChecks::expectParseError;
using ValueTextChecks::expectRoundTrip;
using ValueTextChecks::sameBytes;

struct Reject {
   std::string text;
   std::string reason;
};

TEST(IpGenAddrTest, FamiliesTextAndOrder) {
   EXPECT_TRUE(IpGenAddr().isEmpty());
   EXPECT_EQ(IpGenAddr(IpAddr(7)).v4(), IpAddr(7));
   EXPECT_EQ(IpGenAddr::parse("2001:db8::1").v6(), Ip6Addr::parse("2001:db8::1"));
   EXPECT_EQ(IpGenAddr::parse("10.1.1.5").af(), AddressFamily::ipv4);
   for (auto text : {"none", "10.1.1.5", "2001:db8::1", "::"}) {
      expectRoundTrip<IpGenAddr>(text);
   }
   expectParseError<IpGenAddr>("None", "bad IPv4 address 'None'");
   expectParseError<IpGenAddr>("2001:db8::g", "bad IPv6 address");
   // 0.0.0.0 and :: hold the same bytes; the family tells them apart and
   // orders them.
   EXPECT_NE(IpGenAddr(IpAddr()), IpGenAddr(Ip6Addr()));
   EXPECT_LT(IpGenAddr(), IpGenAddr(IpAddr()));
   EXPECT_LT(IpGenAddr(IpAddr(0xffffffff)), IpGenAddr(Ip6Addr()));
}

TEST(IpGenAddrDeathTest, WrongFamilyAccessIsFatal) {
   EXPECT_DEATH(IpGenAddr(Ip6Addr()).v4(), "assertion failed: .*not IPv4");
   EXPECT_DEATH(IpGenPrefix().v6Addr(), "assertion failed: .*not IPv6");
}

TEST(IpGenPrefixTest, ConstructorsClearHostBits) {
   struct Row {
      IpGenPrefix prefix;
      std::string text;
   };
   const Row rows[] = {
         {IpGenPrefix(IpAddr::parse("10.1.1.5"), 0), "0.0.0.0/0"},
         {IpGenPrefix(IpAddr::parse("10.1.1.5"), 24), "10.1.1.0/24"},
         {IpGenPrefix(IpAddr::parse("10.1.1.7"), 30), "10.1.1.4/30"},
         {IpGenPrefix(IpAddr::parse("10.1.1.255"), 31), "10.1.1.254/31"},
         {IpGenPrefix(IpAddr::parse("10.1.1.5"), 32), "10.1.1.5/32"},
         {IpGenPrefix(Ip6Addr::parse("2001:db8::1"), 0), "::/0"},
         {IpGenPrefix(Ip6Addr::parse("2001:db8:1:2:3:4:5:6"), 64), "2001:db8:1:2::/64"},
         {IpGenPrefix(Ip6Addr::parse("2001:db8::3"), 127), "2001:db8::2/127"},
         {IpGenPrefix(Ip6Addr::parse("2001:db8::3"), 128), "2001:db8::3/128"},
   };
   for (const auto& row : rows) {
      SCOPED_TRACE(row.text);
      EXPECT_EQ(row.prefix.toString(), row.text);
      EXPECT_EQ(row.prefix, IpGenPrefix::parse(row.text));
   }
   IpGenPrefix v4(IpAddr::parse("10.1.1.5"), 24);
   EXPECT_EQ(v4.v4Addr(), IpAddr::parse("10.1.1.0"));
   EXPECT_EQ(v4.len(), 24);
   EXPECT_EQ(v4.addr(), IpGenAddr::parse("10.1.1.0"));
   EXPECT_EQ(IpGenPrefix(Ip6Addr::parse("::1"), 64).v6Addr(), Ip6Addr());
   EXPECT_THROW(IpGenPrefix(IpAddr(), 33), std::range_error);
   EXPECT_THROW(IpGenPrefix(Ip6Addr(), 129), std::range_error);
   // Every length of an all-ones address keeps exactly that many leading ones.
   Ip6Addr::Bytes ones;
   ones.fill(0xff);
   for (unsigned len = 0; len <= 128; ++len) {
      const Ip6Addr::Bytes kept = IpGenPrefix(Ip6Addr(ones), static_cast<uint8_t>(len)).v6Addr().bytes();
      for (unsigned bit = 0; bit < 128; ++bit) {
         const bool set = (kept[bit / 8] >> (7 - bit % 8)) & 1;
         ASSERT_EQ(set, bit < len) << "length " << len << ", bit " << bit;
      }
   }
}

TEST(IpGenPrefixTest, Text) {
   EXPECT_TRUE(IpGenPrefix().isEmpty());
   for (auto text : {"none", "10.1.1.0/24", "0.0.0.0/0", "2001:db8::/64", "fe80::1/128"}) {
      expectRoundTrip<IpGenPrefix>(text);
   }
   const Reject rows[] = {
         {"10.1.1.5/24", "host bits set in '10.1.1.5/24'"},
         {"10.1.1.1/0", "host bits set"},
         {"2001:db8::3/127", "host bits set in '2001:db8::3/127'"},
         {"10.1.1.0/33", "mask length 33 out of range for IPv4"},
         {"2001:db8::/129", "mask length 129 out of range for IPv6"},
         {"", "missing '/'"},
         {"none/0", "bad IPv4 address 'none'"},
   };
   for (const auto& row : rows) {
      expectParseError<IpGenPrefix>(row.text, row.reason);
   }
}

TEST(IpGenPrefixTest, OrdersByFamilyThenAddressThenLength) {
   // A covering prefix sorts right before the longer prefixes it covers
   // rather than with the other prefixes of its length.
   const std::vector<std::string> sorted = {
         "none",        "0.0.0.0/0", "10.0.0.0/8",    "10.0.0.0/16",   "10.1.0.0/16",
         "11.0.0.0/8",  "::/0",      "2001:db8::/32", "2001:db8::/64", "fe80::/10",
   };
   std::vector<IpGenPrefix> prefixes;
   for (auto it = sorted.rbegin(); it != sorted.rend(); ++it) {
      prefixes.push_back(IpGenPrefix::parse(*it));
   }
   std::sort(prefixes.begin(), prefixes.end());
   for (size_t i = 0; i < prefixes.size(); ++i) {
      EXPECT_EQ(prefixes[i].toString(), sorted[i]);
      if (i > 0) {
         EXPECT_GT(prefixes[i], prefixes[i - 1]) << sorted[i];
      }
   }
}

TEST(IpGenPrefixTest, EqualPrefixesHaveIdenticalBytes) {
   IpGenPrefix constructed(IpAddr::parse("10.1.1.5"), 24);
   IpGenPrefix parsed = IpGenPrefix::parse("10.1.1.0/24");
   IpGenPrefix derived = IpGenAddrWithMask::parse("10.1.1.77/24").prefix();
   IpGenPrefix reassigned(Ip6Addr::parse("ffff:ffff:ffff:ffff::"), 128);
   reassigned = IpGenPrefix(IpAddr::parse("10.1.1.255"), 24);
   for (const auto* other : {&parsed, &derived, &reassigned}) {
      EXPECT_EQ(constructed, *other);
      EXPECT_TRUE(sameBytes(constructed, *other));
   }
   EXPECT_TRUE(sameBytes(IpGenPrefix(Ip6Addr::parse("2001:db8::ffff"), 64),
                         IpGenPrefix::parse("2001:db8::/64")));
}

TEST(IpGenAddrWithMaskTest, KeepsHostBitsAndDerivesPrefix) {
   auto v4 = IpGenAddrWithMask(IpAddrWithMask::parse("10.1.1.5/24"));
   EXPECT_EQ(v4.af(), AddressFamily::ipv4);
   EXPECT_EQ(v4.len(), 24);
   EXPECT_EQ(v4.addr(), IpGenAddr::parse("10.1.1.5"));
   EXPECT_EQ(v4.prefix(), IpGenPrefix::parse("10.1.1.0/24"));
   auto v6 = IpGenAddrWithMask(Ip6AddrWithMask::parse("2001:db8::1/64"));
   EXPECT_EQ(v6.addr(), IpGenAddr::parse("2001:db8::1"));
   EXPECT_EQ(v6.prefix(), IpGenPrefix::parse("2001:db8::/64"));
   EXPECT_TRUE(IpGenAddrWithMask().addr().isEmpty());
   EXPECT_TRUE(IpGenAddrWithMask().prefix().isEmpty());
}

TEST(IpGenAddrWithMaskTest, TextAndOrder) {
   for (auto text : {"none", "10.1.1.5/24", "2001:db8::1/64", "255.255.255.255/32",
                     "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe/128", "::ffff:255.255.255.255/128"}) {
      expectRoundTrip<IpGenAddrWithMask>(text);
   }
   expectParseError<IpGenAddrWithMask>("2001:db8::1/129", "out of range for IPv6");
   expectParseError<IpGenAddrWithMask>("NONE", "missing '/'");
   EXPECT_LT(IpGenAddrWithMask::parse("10.1.1.5/32"), IpGenAddrWithMask::parse("10.1.1.6/8"));
   EXPECT_LT(IpGenAddrWithMask::parse("10.1.1.5/8"), IpGenAddrWithMask::parse("10.1.1.5/32"));
   EXPECT_LT(IpGenAddrWithMask::parse("255.1.1.5/8"), IpGenAddrWithMask::parse("::1/8"));
}

}  // namespace
}  // namespace Ovel
