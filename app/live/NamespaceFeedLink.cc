// A link's addresses as the kernel lists them, and the engine addresses and
// peer prefixes they give, each counted and marked when it may have changed
// (NamespaceFeed.h).
#include "app/live/NamespaceFeed.h"

#include <algorithm>
#include <optional>
#include <set>

namespace App {

void NamespaceFeed::Link::addV4(const V4Addr& a) {
   if (auto it = v4Index.find(a.kernel); it != v4Index.end()) {
      if (it->second.secondary == a.secondary) {
         // Announced again (lifetimes, flags): the kernel did not move it,
         // though a flag may change what it gives the engine.
         const EngineAddress4 before = it->second.engine;
         it->second.engine = a.engine;
         count(before, false);
         count(a.engine, true);
         return;
      }
      delV4(a.kernel);
   }
   // The kernel's order: primaries by scope (global first), each scope in
   // the order they came, then secondaries; a promoted secondary is placed
   // as a new primary.
   std::list<KernelAddress4>::iterator at;
   if (a.secondary) {
      at = kernelSecondaries.insert(kernelSecondaries.end(), a.kernel);
   } else {
      auto before = primaries.end();
      if (!primaries.empty() && v4Index.at(primaries.back()).scope > a.scope) {
         before = std::find_if(primaries.begin(), primaries.end(), [&](const auto& p) {
            return v4Index.at(p).scope > a.scope;
         });
      }
      at = primaries.insert(before, a.kernel);
   }
   v4Index[a.kernel] = V4Place{a.engine, a.secondary, a.scope, at};
   count(a.engine, true);
}

namespace {

template <class Addr, class Counted>
void tally(const Addr& addr, const std::optional<Addr>& peer, bool added, int fullLength,
           Counted& addrs, Counted& peers, std::set<Addr>& changedAddrs, std::set<Addr>& changedPeers) {
   addrs.change(addr, added);
   changedAddrs.insert(addr);
   if (!peers.counts.empty()) {
      changedPeers.insert(Addr(addr.addr(), std::uint8_t(fullLength)));
   }
   if (peer) {
      peers.change(*peer, added);
      changedPeers.insert(*peer);
   }
}

}  // namespace

void NamespaceFeed::Link::count(const EngineAddress4& engine, bool added) {
   tally(engine.addr, engine.peer, added, 32, engine4, peers4, changed4, changedPeers4);
}

void NamespaceFeed::Link::count(const EngineAddress6& engine, bool added) {
   tally(engine.addr, engine.peer, added, 128, engine6, peers6, changed6, changedPeers6);
}

void NamespaceFeed::Link::delV4(const KernelAddress4& addr) {
   auto it = v4Index.find(addr);
   if (it == v4Index.end()) {
      return;
   }
   const EngineAddress4 engine = it->second.engine;
   (it->second.secondary ? kernelSecondaries : primaries).erase(it->second.at);
   v4Index.erase(it);
   count(engine, false);
}

// A peer prefix equal to an address's host may now be wanted or not.
void NamespaceFeed::Link::addV6(const Ovel::Ip6AddrWithMask& kernel, const EngineAddress6& engine) {
   if (auto it = v6.find(kernel); it != v6.end()) {
      if (it->second == engine) {
         return;
      }
      delV6(kernel);
   }
   v6.emplace(kernel, engine);
   count(engine, true);
}

void NamespaceFeed::Link::delV6(const Ovel::Ip6AddrWithMask& kernel) {
   auto it = v6.find(kernel);
   if (it == v6.end()) {
      return;
   }
   const EngineAddress6 engine = it->second;
   v6.erase(it);
   count(engine, false);
}

void NamespaceFeed::Link::clearAddresses() {
   primaries.clear();
   kernelSecondaries.clear();
   v4Index.clear();
   engine4 = {};
   peers4 = {};
   v6.clear();
   engine6 = {};
   peers6 = {};
   allChanged = true;
}

}  // namespace App
