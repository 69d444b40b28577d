// The IPv4 address machine of one interface: turns the interface's active
// address, active secondaries and directed-broadcast setting into
// candidates in the VRF's store.
//
// Per address A/L: the attached subnet (type 11) unless /32, the host route
// A/32 (type 1, or 2 for a /32), and for L <= 30 the network and broadcast
// /32s (type 3; the broadcast type 4 while directed broadcast is on). The
// interface's keys exist before its first candidate is stored, its count
// rises once per address after its candidates, and its keys are released
// when no address holds them. Two repeats are deliberate: an unchanged
// active address handed in again is added (and counted) again, and a change
// of directed broadcast re-adds the network and broadcast entries of every
// listed secondary, active or not.
//
// A peer prefix P/L (a point-to-point address's far end) gives the attached
// route P/L (type 11, a /32 included) and for L <= 30 the network and
// broadcast /32s as an address would, but no host route: none of it is the
// interface's own. It counts once, like an address. The machine keeps the
// peer prefixes it added, so that it removes exactly those, whatever the
// status lists by then. A peer prefix that is also an address of the
// interface (its network address, at the same length) is left to the
// address, whose entries would have the same keys; it is added once the
// address goes.
//
// Two inputs a Linux host produces are handled where the candidate keys of
// one address would collide: an address equal to its subnet's network or
// broadcast address gets only its host entry for that /32, and an address
// that is at once the active address and an active secondary (the kernel
// promotes a secondary that way) keeps its entries until its last role
// goes, each role giving back its own count.
#pragma once

#include <memory>
#include <set>

#include "platform/ip/IpIntfStatus.h"
#include "tracking/AddressMachine.h"

namespace Routing::ConnectedRoute {

class IpIntfSm final : public AddressMachine<IpIntfSm, Ip::IpIntfStatus> {
 public:
   IpIntfSm(Ovel::IntfId intfId, Vok::Ptr<const Ip::IpIntfStatus> ipIntfStatus,
            Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm);
   ~IpIntfSm() override;

   void handleInitialized();
   void handleActiveAddress(const Ovel::IpAddrWithMask& addr);
   void handleSecondaryAddress(const Ovel::IpAddrWithMask& addr);
   void handleDirectedBroadcast();
   void handleIntfDeletion();
   void updateIntfIdsByPrefix(const Ovel::IpAddrWithMask& addr, bool del);
   void updateBcastRoute(const Ovel::IpAddrWithMask& addr, bool del);

   const Vok::Ptr<const Ip::IpIntfStatus>& ipIntfStatus() const noexcept;
   // Watches another status object and replays its active address and
   // directed-broadcast setting (not its secondaries).
   void ipIntfStatusIs(Vok::Ptr<const Ip::IpIntfStatus> status);
   const Ovel::IpAddrWithMask& prevActiveAddrWithMask() const noexcept { return prevActiveAddr_; }

   // About how many candidates a machine over `status` stores: a size to
   // prepare the store for, not a count anything relies on.
   static std::size_t candidatesFor(const Ip::IpIntfStatus& status);

 private:
   friend AddressMachine<IpIntfSm, Ip::IpIntfStatus>;
   class VokIpIntfStatus;

   void add(const Ovel::IpGenPrefix& prefix, const Ovel::IpGenAddrWithMask& addr,
            Fib::RouteType type, Rib::ViaSetKey viaSetKey);
   void remove(const Ovel::IpGenPrefix& prefix, const Ovel::IpGenAddrWithMask& addr);
   IntfViaSetKeyStatus& keyStatus() const;
   // Removes one role (active, or secondary) of an address: everything, or
   // only that role's count while the other role holds the entries.
   void releaseRole(const Ovel::IpAddrWithMask& addr, bool otherRoleHolds);
   void updatePeerPrefix(const Ovel::IpAddrWithMask& prefix, bool del);
   bool peerPrefixWanted(const Ovel::IpAddrWithMask& prefix) const;
   // The network and broadcast /32s of `subnet` (length 30 or less), each
   // unless it is the address's own host entry.
   void updateNetworkAndBroadcast(const Ovel::IpAddrWithMask& subnet,
                                  const Ovel::IpGenAddrWithMask& genAddr, bool withNetwork,
                                  bool withBroadcast, bool del);

   Ovel::IpAddrWithMask prevActiveAddr_;
   // Secondaries whose entries this machine added and has not removed: an
   // address that is also the active address gives back only its count
   // while the other role holds, and only a role that was counted can.
   std::set<Ovel::IpAddrWithMask> countedSecondaries_;
};

// Builds a machine with its notifications active (the initial sweep runs in
// the constructor).
Vok::Ptr<IpIntfSm> ipIntfSmFactory(Ovel::IntfId intfId,
                                   Vok::Ptr<const Ip::IpIntfStatus> ipIntfStatus,
                                   Vok::Ptr<IntfBacklog> intfBacklog,
                                   Vok::Ptr<IntfBacklogSm> intfBacklogSm);

}  // namespace Routing::ConnectedRoute
