// What the IPv4 and IPv6 address machines share: the interface they serve,
// the VRF's store and installer, the reactor that watches the interface's
// status, the peer prefixes the machine added, and how a machine is built
// active and retired. The machine says which peer prefixes it wants and how
// one is added or removed (peerPrefixWanted, updatePeerPrefix); the base
// keeps the set and brings it in line.
//
//   class IpIntfSm final : public AddressMachine<IpIntfSm, Ip::IpIntfStatus> { ... };
//   auto sm = activeMachine<IpIntfSm>(intfId, status, store, installer);
#pragma once

#include <memory>
#include <set>
#include <string>

#include "install/IntfBacklogSm.h"
#include "tracking/ConnectedRouteTrace.h"

namespace Routing::ConnectedRoute {

template <class Machine, class Status>
class AddressMachine : public Vok::Entity {
 public:
   // The status's address-with-mask type, which peer prefixes also are.
   using Prefix = typename Status::PeerPrefixes::value_type;

   const Ovel::IntfId& intfId() const noexcept { return intfId_; }
   const Vok::Ptr<IntfBacklog>& intfBacklog() const noexcept { return intfBacklog_; }
   const Vok::Ptr<IntfBacklogSm>& intfBacklogSm() const noexcept { return intfBacklogSm_; }
   bool initialized() const noexcept { return initialized_; }
   L3::VrfName vrfName() const { return intfBacklog_ ? intfBacklog_->vrfName() : L3::VrfName(); }
   void hasNotificationActiveIs(bool active) { reactor_->hasNotificationActiveIs(active); }

   // Adds or removes the peer prefix as the machine now wants it.
   void handlePeerPrefix(const Prefix& prefix) {
      const bool wanted = machine().peerPrefixWanted(prefix);
      if (wanted != addedPeerPrefixes_.contains(prefix)) {
         machine().updatePeerPrefix(prefix, !wanted);
      }
   }
   // Removes the added peer prefixes no longer wanted, and adds those the
   // status lists that are.
   void syncPeerPrefixes() {
      const std::set<Prefix> added = addedPeerPrefixes_;
      for (const Prefix& prefix : added) {
         if (!machine().peerPrefixWanted(prefix)) {
            machine().updatePeerPrefix(prefix, true);
         }
      }
      if (const auto& status = reactor_->notifier()) {
         for (const Prefix& prefix : status->peerPrefix()) {
            handlePeerPrefix(prefix);
         }
      }
   }

 protected:
   AddressMachine(Ovel::IntfId intfId, Vok::Ptr<IntfBacklog> intfBacklog,
                  Vok::Ptr<IntfBacklogSm> intfBacklogSm)
         : intfId_(std::move(intfId)),
           intfBacklog_(std::move(intfBacklog)),
           intfBacklogSm_(std::move(intfBacklogSm)) {}
   // The machine's own destructor withdraws what it added, then retires:
   // its reactor hears nothing more.
   void retire() { reactor_->isZombieIs(true); }
   std::string describe() const { return describeIntf(vrfName(), intfId_); }

   Ovel::IntfId intfId_;
   Vok::Ptr<IntfBacklog> intfBacklog_;
   Vok::Ptr<IntfBacklogSm> intfBacklogSm_;
   // Built by the machine, which the reactor calls back.
   std::unique_ptr<Vok::Reactor<Status>> reactor_;
   // The peer prefixes this machine added and has not removed.
   std::set<Prefix> addedPeerPrefixes_;
   bool initialized_ = false;

 private:
   Machine& machine() { return static_cast<Machine&>(*this); }
};

// Builds a machine with its notifications active (its initial sweep runs in
// its constructor).
template <class Machine, class... Args>
Vok::Ptr<Machine> activeMachine(Args&&... args) {
   auto machine = Vok::make<Machine>(std::forward<Args>(args)...);
   machine->hasNotificationActiveIs(true);
   return machine;
}

}  // namespace Routing::ConnectedRoute
