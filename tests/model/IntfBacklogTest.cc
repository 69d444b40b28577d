// The store: what it records, what it queues, and the exact order in which
// its watchers hear about it.
#include "model/IntfBacklog.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/InstallerHarness.h"

namespace Routing::ConnectedRoute {
namespace {

using Testing::addr;
using Testing::intf;
using Testing::prefix;

class Recorder final : public Vok::Reactor<IntfBacklog> {
 public:
   using Vok::Reactor<IntfBacklog>::Reactor;
   void onBacklog(const IntfIdAndPrefix& key) override {
      log.push_back("backlog " + std::string(key.intfId().name()) + " " +
                    key.genPrefix().toString());
   }
   void onBacklogEmpty() override { log.push_back("backlogEmpty"); }
   void onIntfIdsByPrefix(const Ovel::IpGenPrefix& p) override {
      log.push_back("prefix " + p.toString());
   }
   void onIntfViaSetKeyStatus4() override { log.push_back("status4"); }
   std::vector<std::string> log;
};

struct Store : ::testing::Test {
   Vok::Ptr<IntfBacklog> store = intfBacklogFactory("", L3::VrfName("red"));
   Recorder recorder{store};
   const Ovel::IntfId e1 = intf("Ethernet1");
   const Ovel::IpGenPrefix p = prefix("10.1.1.0/24");

   void add(std::string_view address, Fib::RouteType type = Fib::RouteType::attachedSubnet) {
      store->addToIntfIdsByPrefix(e1, p, addr(address), type, Rib::ViaSetKey(1));
   }
};

TEST_F(Store, FirstCandidateAnnouncesThePrefixThenQueuesThePair) {
   add("10.1.1.5/24");
   EXPECT_EQ(recorder.log,
             (std::vector<std::string>{"prefix 10.1.1.0/24", "backlog Ethernet1 10.1.1.0/24"}));
   EXPECT_EQ(store->intfIdsByPrefix(p)->intfIdAndAddrs(), 1u);
}

TEST_F(Store, APendingPairIsQueuedOnceWhateverChanges) {
   add("10.1.1.5/24");
   add("10.1.1.5/24");
   add("10.1.1.5/24", Fib::RouteType::hostOfSubnetAddress);
   EXPECT_EQ(recorder.log.size(), 2u);
   EXPECT_EQ(store->backlog().size(), 1u);
   EXPECT_EQ(store->intfIdsByPrefix(p)->intfIdAndAddrs(), 1u);
   EXPECT_EQ(store->intfIdsByPrefix(p)->intfIdAndAddr(IntfIdAndAddr(e1, addr("10.1.1.5/24")))
                   ->routeType(),
             Fib::RouteType::hostOfSubnetAddress);
}

TEST_F(Store, TwoAddressesOfOneInterfaceInOnePrefixAreTwoCandidates) {
   add("10.1.1.5/24");
   add("10.1.1.6/24");
   store->backlogDel(IntfIdAndPrefix(e1, p));
   recorder.log.clear();
   store->delFromIntfIdsByPrefix(e1, p, addr("10.1.1.5/24"));
   EXPECT_EQ(recorder.log, std::vector<std::string>{"backlog Ethernet1 10.1.1.0/24"});
   EXPECT_EQ(store->intfIdsByPrefix(p)->intfIdAndAddrs(), 1u);
}

TEST_F(Store, DeletingTheLastCandidateQueuesThePairBeforeThePrefixGoes) {
   add("10.1.1.5/24");
   store->backlogDel(IntfIdAndPrefix(e1, p));
   recorder.log.clear();
   store->delFromIntfIdsByPrefix(e1, p, addr("10.1.1.5/24"));
   EXPECT_EQ(recorder.log,
             (std::vector<std::string>{"backlog Ethernet1 10.1.1.0/24", "prefix 10.1.1.0/24"}));
   EXPECT_FALSE(store->intfIdsByPrefix(p));
}

TEST_F(Store, DeletingAnAbsentAddressStillQueuesThePair) {
   add("10.1.1.5/24");
   store->backlogDel(IntfIdAndPrefix(e1, p));
   recorder.log.clear();
   store->delFromIntfIdsByPrefix(e1, p, addr("10.1.1.9/24"));
   EXPECT_EQ(recorder.log, std::vector<std::string>{"backlog Ethernet1 10.1.1.0/24"});
}

TEST_F(Store, ZeroLengthAndFamilylessPrefixesNeverEnter) {
   store->addToIntfIdsByPrefix(e1, prefix("0.0.0.0/0"), addr("10.0.0.1/0"),
                               Fib::RouteType::attachedSubnet, Rib::ViaSetKey(1));
   store->addToIntfIdsByPrefix(e1, Ovel::IpGenPrefix(), addr("10.0.0.1/8"),
                               Fib::RouteType::attachedSubnet, Rib::ViaSetKey(1));
   store->delFromIntfIdsByPrefix(e1, prefix("::/0"), addr("::1/0"));
   store->doAddBacklog(e1, prefix("0.0.0.0/0"));
   EXPECT_TRUE(recorder.log.empty());
   EXPECT_TRUE(store->backlog().empty());
   EXPECT_TRUE(store->intfIdsByPrefixes().empty());
}

TEST_F(Store, AProcessedPairIsQueuedAndAnnouncedAgain) {
   add("10.1.1.5/24");
   store->backlogDel(IntfIdAndPrefix(e1, p));
   recorder.log.clear();
   add("10.1.1.5/24");
   EXPECT_EQ(recorder.log, std::vector<std::string>{"backlog Ethernet1 10.1.1.0/24"});
}

TEST_F(Store, EmptyCounterNotifiesOnlyOnChange) {
   store->backlogEmptyInc(0);
   store->backlogEmptyIs(0);
   EXPECT_TRUE(recorder.log.empty());
   store->backlogEmptyInc(1);
   store->backlogEmptyIs(5);
   EXPECT_EQ(recorder.log, (std::vector<std::string>{"backlogEmpty", "backlogEmpty"}));
   EXPECT_EQ(store->backlogEmpty(), 5u);
   store->backlogEmptyIs(0xFFFFFFFF);
   store->backlogEmptyInc(2);
   EXPECT_EQ(store->backlogEmpty(), 1u);  // modulo 2^32
}

TEST_F(Store, DeletingFromAPrefixNeverAddedIsFatal) {
   EXPECT_DEATH(store->delFromIntfIdsByPrefix(e1, p, addr("10.1.1.5/24")),
                "assertion failed: intfIdSet");
}

// The installer's owner is kept beside the candidates: a prefix whose last
// candidate went while its route is still installed is no candidate set for
// anyone, and comes back as a new prefix.
TEST_F(Store, AnInstalledOwnerOutlivesTheCandidatesUnseen) {
   const Ovel::IpGenPrefix q = prefix("10.2.2.0/24");
   add("10.1.1.5/24");
   store->addToIntfIdsByPrefix(e1, q, addr("10.2.2.5/24"), Fib::RouteType::attachedSubnet,
                               Rib::ViaSetKey(1));
   store->installedOwnerIs(p, 7);
   store->installedOwnerIs(p, 8);
   EXPECT_EQ(store->installedOwner(p), 8u);
   EXPECT_EQ(store->installedOwnerCount(), 1u);
   EXPECT_EQ(store->installedOwner(q), PrefixRecord::kNoOwner);

   store->delFromIntfIdsByPrefix(e1, p, addr("10.1.1.5/24"));
   EXPECT_FALSE(store->intfIdsByPrefix(p));
   EXPECT_EQ(store->installedOwner(p), 8u);
   EXPECT_EQ(store->intfIdsByPrefixes().size(), 1u);
   std::vector<std::string> listed;
   for (const auto& [prefix, set] : store->intfIdsByPrefixes()) {
      listed.push_back(prefix.toString() + " " + std::to_string(set.intfIdAndAddrs()));
   }
   EXPECT_EQ(listed, std::vector<std::string>{"10.2.2.0/24 1"});

   recorder.log.clear();
   add("10.1.1.6/24");  // the pair is still pending from the removal
   EXPECT_EQ(recorder.log, std::vector<std::string>{"prefix 10.1.1.0/24"});
   EXPECT_EQ(store->intfIdsByPrefixes().size(), 2u);

   store->installedOwnerDel(p);
   store->installedOwnerDel(p);
   EXPECT_EQ(store->installedOwnerCount(), 0u);
   EXPECT_EQ(store->intfIdsByPrefix(p)->intfIdAndAddrs(), 1u);
   store->installedOwnerIs(q, 3);
   store->installedOwnerDelAll();
   EXPECT_EQ(store->installedOwner(q), PrefixRecord::kNoOwner);
   EXPECT_EQ(store->intfIdsByPrefixes().size(), 2u);
}

// Sets copied out of the store into new prefixes, while the insertions
// move the records (and the maps of two candidates) around.
TEST_F(Store, ASetCopiedFromTheStoreIntoItsOwnMapArrivesWhole) {
   store->addToIntfIdsByPrefix(e1, p, addr("10.1.1.5/24"), Fib::RouteType::attachedSubnet,
                               Rib::ViaSetKey(1));
   store->addToIntfIdsByPrefix(intf("Ethernet2"), p, addr("10.1.1.6/24"),
                               Fib::RouteType::attachedSubnet, Rib::ViaSetKey(2));
   Ovel::IpGenPrefix from = p;
   for (std::uint32_t n = 1; n <= 200; ++n) {
      const Ovel::IpGenPrefix to(Ovel::IpAddr(0x0B000000u + (n << 8)), 24);
      store->intfIdsByPrefixIs(to, store->intfIdsByPrefix(from)->set());
      ASSERT_EQ(*store->intfIdsByPrefix(to), *store->intfIdsByPrefix(p));
      from = to;
   }
   EXPECT_EQ(store->intfIdsByPrefixes().size(), 201u);
}

TEST_F(Store, TheGenericSetterAnnouncesOnlySetsThatDiffer) {
   IntfIdSet set;
   set.intfIdAndAddrIs(IntfIdAndAddr(e1, addr("10.1.1.5/24")),
                       ConnectedRouteProperty(Fib::RouteType::attachedSubnet, Rib::ViaSetKey(1)));
   store->intfIdsByPrefixIs(p, set);
   store->intfIdsByPrefixIs(p, set);
   EXPECT_EQ(recorder.log, std::vector<std::string>{"prefix 10.1.1.0/24"});
   set.intfIdAndAddrIs(IntfIdAndAddr(e1, addr("10.1.1.5/24")),
                       ConnectedRouteProperty(Fib::RouteType::attachedSubnet, Rib::ViaSetKey(2)));
   store->intfIdsByPrefixIs(p, set);
   EXPECT_EQ(recorder.log.size(), 2u);
   EXPECT_EQ(store->intfIdsByPrefix(p)->intfIdAndAddr(IntfIdAndAddr(e1, addr("10.1.1.5/24")))
                   ->viaSetKey(),
             Rib::ViaSetKey(2));
   EXPECT_TRUE(store->backlog().empty());  // candidates set directly queue nothing
}

TEST_F(Store, ViaSetKeyTablesAreKeptForTheirFamily) {
   auto first = store->intfViaSetKeyStatus4Is(Ovel::AddressFamily::ipv4);
   EXPECT_EQ(store->intfViaSetKeyStatus4Is(Ovel::AddressFamily::ipv4), first);
   EXPECT_EQ(recorder.log, std::vector<std::string>{"status4"});
   EXPECT_NE(store->intfViaSetKeyStatus4Is(Ovel::AddressFamily::ipv6), first);
   store->intfViaSetKeyStatus4Del();
   store->intfViaSetKeyStatus4Del();
   EXPECT_EQ(recorder.log, (std::vector<std::string>{"status4", "status4", "status4"}));
}

TEST_F(Store, DelAllNotifiesOncePerKey) {
   add("10.1.1.5/24");
   store->addToIntfIdsByPrefix(e1, prefix("10.2.0.0/16"), addr("10.2.0.1/16"),
                               Fib::RouteType::attachedSubnet, Rib::ViaSetKey(1));
   recorder.log.clear();
   store->backlogDelAll();
   store->intfIdsByPrefixDelAll();
   EXPECT_EQ(recorder.log.size(), 4u);
   EXPECT_TRUE(store->backlog().empty());
   EXPECT_TRUE(store->intfIdsByPrefixes().empty());
}

TEST(IntfViaSetKeyStatus, CountsUsesAndKeepsKeysApart) {
   auto table = Vok::make<IntfViaSetKeyStatus>(Ovel::AddressFamily::ipv4);
   const auto e1 = intf("Ethernet1");
   table->intfViaSetKeyIs(IntfViaSetKey(e1, Rib::ViaKey(1, 0, 1), Rib::ViaSetKey(1),
                                        Rib::ViaSetKey(2), Rib::ViaSetKey(3), Rib::ViaSetKey(4)));
   table->incIntfVskRefcount(e1);
   table->incIntfVskRefcount(e1);
   EXPECT_EQ(table->vskRefcountByIntfId(e1), 2u);
   table->decIntfVskRefcount(e1);
   table->decIntfVskRefcount(e1);
   EXPECT_FALSE(table->hasVskRefcount(e1));
   ASSERT_TRUE(table->intfViaSetKey(e1));
   const IntfViaSetKey replacement(e1, Rib::ViaKey(1, 0, 9), Rib::ViaSetKey(9), Rib::ViaSetKey(10),
                                   Rib::ViaSetKey(), Rib::ViaSetKey());
   table->intfViaSetKeyIs(replacement);
   EXPECT_EQ(*table->intfViaSetKey(e1), replacement);
   EXPECT_DEATH(table->decIntfVskRefcount(e1),
                "assertion failed: vskRefcountByIntfId\\( intfId \\) > 0");
}

// Random candidate changes through every mutator of the candidate sets,
// against a reference of plain maps: after each, every prefix's set holds
// the reference's entries with their routes, its first entry is the one a
// set of those entries of its own puts first, and the record's
// candidateOwner is that entry's interface number. The store keeps a single
// candidate without its interface's name and moves to a map from the
// second on; the changes cross that line both ways.
TEST(StoreRecords, CandidateSetsAgreeWithAReference) {
   std::mt19937 random(5);
   auto store = intfBacklogFactory("", L3::VrfName("red"));
   const std::vector<Ovel::IpGenPrefix> prefixes{prefix("10.1.0.0/16"), prefix("10.2.0.0/16")};
   auto pick = [&](int n) { return int(random() % unsigned(n)); };
   auto someIntf = [&] { return intf("Ethernet" + std::to_string(pick(6))); };
   auto someAddr = [&](const Ovel::IpGenPrefix& p) {
      return addr(p.toString().substr(0, 5) + std::to_string(pick(4)) + ".1/16");
   };
   auto someProperty = [&] {
      return ConnectedRouteProperty(Fib::RouteType::attachedSubnet, Rib::ViaSetKey(1 + pick(3)));
   };
   using Entries = std::map<std::string, std::pair<IntfIdAndAddr, ConnectedRouteProperty>>;
   std::map<Ovel::IpGenPrefix, Entries> reference;  // the listed prefixes
   auto put = [](Entries& entries, const IntfIdAndAddr& key, const ConnectedRouteProperty& property) {
      entries.insert_or_assign(key.toString(), std::pair(key, property));
   };
   for (int step = 0; step < 20000; ++step) {
      const Ovel::IpGenPrefix& p = prefixes[pick(2)];
      switch (pick(8)) {
         case 0: {  // a whole set, of interfaces perhaps never seen
            IntfIdSet whole;
            Entries entries;
            for (int n = pick(4); n > 0; --n) {
               const IntfIdAndAddr key(intf("Vlan" + std::to_string(pick(50))), someAddr(p));
               const ConnectedRouteProperty property = someProperty();
               whole.intfIdAndAddrIs(key, property);
               put(entries, key, property);
            }
            store->intfIdsByPrefixIs(p, whole);
            reference[p] = entries;
            break;
         }
         case 1:
            store->intfIdsByPrefixDel(p);
            reference.erase(p);
            break;
         case 2:
         case 3:
            if (reference.contains(p) && !reference[p].empty()) {  // one of its entries goes
               auto gone = std::next(reference[p].begin(), pick(int(reference[p].size())));
               const IntfIdAndAddr key = gone->second.first;
               reference[p].erase(gone);
               store->delFromIntfIdsByPrefix(key.intfId(), p, key.addrWithMask());
               if (reference[p].empty()) {
                  reference.erase(p);  // an emptied prefix goes
               }
            }
            break;
         default: {
            const IntfIdAndAddr key(someIntf(), someAddr(p));
            const ConnectedRouteProperty property = someProperty();
            store->addToIntfIdsByPrefix(key.intfId(), p, key.addrWithMask(), property.routeType(),
                                        property.viaSetKey());
            put(reference[p], key, property);
         }
      }
      for (const Ovel::IpGenPrefix& q : prefixes) {
         const auto set = store->intfIdsByPrefix(q);
         ASSERT_EQ(set.has_value(), reference.contains(q)) << step;
         if (!set) {
            continue;
         }
         const Entries& entries = reference[q];
         IntfIdSet expected;
         for (const auto& [text, entry] : entries) {
            expected.intfIdAndAddrIs(entry.first, entry.second);
            ASSERT_TRUE(set->intfIdAndAddr(entry.first)) << step;
            ASSERT_EQ(*set->intfIdAndAddr(entry.first), entry.second) << step;
         }
         ASSERT_EQ(set->intfIdAndAddrs(), entries.size()) << step;
         ASSERT_FALSE(set->intfIdAndAddr(IntfIdAndAddr(intf("Other"), someAddr(q)))) << step;
         ASSERT_TRUE(*set == expected) << step;
         std::vector<std::string> walked;
         set->forEach([&](const IntfIdSet::Entry& entry) { walked.push_back(entry.key.toString()); });
         std::vector<std::string> inOrder;
         expected.forEach([&](const IntfIdSet::Entry& entry) { inOrder.push_back(entry.key.toString()); });
         ASSERT_EQ(walked, inOrder) << step;
         const PrefixRecord* record = store->prefixRecord(q);
         const auto first = set->first();
         if (!first) {
            ASSERT_EQ(record->candidateOwner, PrefixRecord::kNoCandidate) << step;
            continue;
         }
         ASSERT_EQ(first->key, expected.first()->key) << step;
         ASSERT_EQ(first->property, expected.first()->property) << step;
         ASSERT_EQ(record->ownerProperty(), expected.first()->property) << step;  // as the drain reads it
         ASSERT_EQ(record->candidateOwner, store->intfNumbers().find(first->key.intfId())) << step;
      }
   }
}

// Counts kept by name and by number, against a map of the counts.
TEST(IntfViaSetKeyStatus, CountsByNameAndByNumberAgreeWithAReference) {
   std::mt19937 random(9);
   auto numbers = std::make_shared<IntfNumbers>();
   auto table = Vok::make<IntfViaSetKeyStatus>(Ovel::AddressFamily::ipv4, numbers);
   std::map<std::string, std::uint32_t> reference;  // only rows that exist
   for (int step = 0; step < 5000; ++step) {
      const std::string name = "Ethernet" + std::to_string(random() % 12);
      const Ovel::IntfId id = intf(name);
      switch (random() % 6) {
         case 0:
            table->incIntfVskRefcount(id);
            ++reference[name];
            break;
         case 1:
            table->incVskRefcountOf(numbers->numberOf(id));
            ++reference[name];
            break;
         case 2:
            if (reference.contains(name)) {
               const std::uint32_t left = table->decVskRefcountOf(numbers->find(id));
               EXPECT_EQ(left, --reference[name]);
               if (left == 0) {
                  reference.erase(name);
               }
            }
            break;
         case 3:
            if (reference.contains(name)) {
               table->decIntfVskRefcount(id);
               if (--reference[name] == 0) {
                  reference.erase(name);
               }
            }
            break;
         case 4:
            table->vskRefcountByIntfIdIs(id, 3);  // a row of its own count
            reference[name] = 3;
            break;
         default:
            table->vskRefcountByIntfIdDel(id);
            reference.erase(name);
      }
      std::map<std::string, std::uint32_t> seen;
      table->forEachVskRefcount([&](const Ovel::IntfId& intfId, std::uint32_t count) {
         seen[std::string(intfId.name())] = count;
      });
      ASSERT_EQ(seen, reference) << step;
      ASSERT_EQ(table->vskRefcountCount(), reference.size()) << step;
      ASSERT_EQ(table->hasVskRefcount(id), reference.contains(name)) << step;
      ASSERT_EQ(table->vskRefcountByIntfId(id), reference.contains(name) ? reference[name] : 0u);
   }
}

}  // namespace
}  // namespace Routing::ConnectedRoute
