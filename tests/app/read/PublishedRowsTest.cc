// A prefix's published candidates read back as they were written, whatever
// the family, the number of candidates and the widest numbers.
#include <gtest/gtest.h>

#include "app/read/PublishedRows.h"
#include "platform/plim/RowPlace.h"

namespace {

struct Written {
   std::string intf;
   Ovel::IpGenAddrWithMask address;
   unsigned type;
   std::uint32_t viaSet;
};

TEST(PublishedRowsTest, CandidatesAreWrittenAsLinesOfTabSeparatedFields) {
   App::CandidatesValue value;
   value.start("-");
   value.add("Ethernet2", Ovel::IpGenAddrWithMask::parse("2001:db8::1/128"), 4294967295u, 4294967295u);
   value.add("Vlan10", Ovel::IpGenAddrWithMask::parse("10.1.1.5/24"), 0, 0);
   value.add("Ethernet3", Ovel::IpGenAddrWithMask(), 3, 12);
   EXPECT_EQ(value.bytes(),
             "-\nEthernet2\t2001:db8::1/128\t4294967295\t4294967295\nVlan10\t10.1.1.5/24\t0\t0\n"
             "Ethernet3\tnone\t3\t12");
   value.start("Ethernet1");  // the buffer starts over
   EXPECT_EQ(value.bytes(), "Ethernet1");
}

TEST(PublishedRowsTest, CandidatesReadBackAsWritten) {
   const Ovel::IpGenAddrWithMask v4(Ovel::IpAddrWithMask(Ovel::IpAddr(0x0A010105u), 24));
   const Ovel::IpGenAddrWithMask v6 = Ovel::IpGenAddrWithMask::parse("ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe/128");
   const std::vector<std::pair<std::string, std::vector<Written>>> cases = {
         {"-", {}},
         {"Ethernet1", {{"Ethernet1", v4, 1, 7}}},
         {"-", {{"Ethernet2", v6, 4294967295u, 4294967295u}, {"Vlan10", v4, 0, 0},
                {"Ethernet3", Ovel::IpGenAddrWithMask(), 3, 12}}},
   };
   App::CandidatesValue value;  // one buffer for every case, as a turn uses it
   for (const auto& [owner, written] : cases) {
      SCOPED_TRACE(owner + " with " + std::to_string(written.size()));
      value.start(owner);
      for (const Written& w : written) {
         value.add(w.intf, w.address, w.type, w.viaSet);
      }
      const App::Candidates read = App::parseCandidates(value.bytes());
      EXPECT_EQ(read.installedOwner, owner);
      ASSERT_EQ(read.rows.size(), written.size());
      for (std::size_t i = 0; i < written.size(); ++i) {
         EXPECT_EQ(read.rows[i].intf, written[i].intf);
         EXPECT_EQ(read.rows[i].address, written[i].address.toString());
         EXPECT_EQ(read.rows[i].type, written[i].type);
         EXPECT_EQ(read.rows[i].viaSet, written[i].viaSet);
      }
   }
}

// A candidate key sorts a VRF's prefixes by their places and gives its
// prefix back; a key whose place is not its prefix's is refused, as is one
// of another size.
TEST(PublishedRowsTest, CandidateKeysHoldTheirPrefixesInTheirPlaces) {
   const Ovel::IpGenPrefix v4(Ovel::IpAddr(0x0A010100u), 24);
   const Ovel::IpGenPrefix v6 = Ovel::IpGenPrefix::parse("2001:db8::/64");
   for (const Ovel::IpGenPrefix& prefix : {v4, v6}) {
      const std::string key = App::candidateKey(prefix);
      ASSERT_EQ(key.size(), 4 + sizeof prefix);
      EXPECT_EQ(App::candidatePrefix(key), prefix);
      std::string moved = key;
      moved[3] = char(moved[3] ^ 1);
      EXPECT_THROW(App::candidatePrefix(moved), std::invalid_argument);
      EXPECT_THROW(App::candidatePrefix(key.substr(0, key.size() - 1)), std::invalid_argument);
   }
   EXPECT_EQ(App::candidateKey(v4) < App::candidateKey(v6), Plim::placeOf(v4) < Plim::placeOf(v6));
}

}  // namespace
