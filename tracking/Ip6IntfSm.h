// The IPv6 address machine of one interface: every listed address whose
// information differs from the default record, other than :: and link-local
// addresses, becomes its subnet (type 11, unless /128) and host /128 (type
// 1, or 2 for a /128) candidates, counted in the store's IPv6 via-set-key
// table. There is no active address and no broadcast.
//
// A peer prefix (a point-to-point address's far end) gives its attached
// route (type 11) and no host route, and counts once. The machine keeps the
// peer prefixes it added, and removes exactly those. A peer prefix that is
// also an address in use is left to the address, whose entries would have
// the same keys; it is added once the address goes.
#pragma once

#include <memory>
#include <set>

#include "platform/ip6/Ip6IntfStatus.h"
#include "tracking/AddressMachine.h"

namespace Routing::ConnectedRoute {

class Ip6IntfSm final : public AddressMachine<Ip6IntfSm, Ip6::IntfStatus> {
 public:
   Ip6IntfSm(Ovel::IntfId intfId, Vok::Ptr<const Ip6::IntfStatus> ip6IntfStatus,
             Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm);
   ~Ip6IntfSm() override;

   void handleInitialized();
   void handleIp6Address(const Ovel::Ip6AddrWithMask& addr);
   void handleIntfDeletion();
   void updateIntfIdsByPrefix(const Ovel::Ip6AddrWithMask& addr, bool del);

   const Vok::Ptr<const Ip6::IntfStatus>& ip6IntfStatus() const noexcept;
   // Watches another status object: its peer prefixes are synced, its
   // addresses not replayed.
   void ip6IntfStatusIs(Vok::Ptr<const Ip6::IntfStatus> status);

   // About how many candidates a machine over `status` stores: a size to
   // prepare the store for, not a count anything relies on.
   static std::size_t candidatesFor(const Ip6::IntfStatus& status);

 private:
   friend AddressMachine<Ip6IntfSm, Ip6::IntfStatus>;
   class VokIp6IntfStatus;

   IntfViaSetKeyStatus& keyStatus() const;
   void updatePeerPrefix(const Ovel::Ip6AddrWithMask& prefix, bool del);
   bool peerPrefixWanted(const Ovel::Ip6AddrWithMask& prefix) const;

};

Vok::Ptr<Ip6IntfSm> ip6IntfSmFactory(Ovel::IntfId intfId,
                                     Vok::Ptr<const Ip6::IntfStatus> ip6IntfStatus,
                                     Vok::Ptr<IntfBacklog> intfBacklog,
                                     Vok::Ptr<IntfBacklogSm> intfBacklogSm);

}  // namespace Routing::ConnectedRoute
