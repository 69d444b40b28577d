#include "tracking/IpIntfSm.h"

#include "platform/trace/Zipmark.h"
#include "tracking/ConnectedRouteTrace.h"

namespace Routing::ConnectedRoute {

namespace {

Zipmark::Field am4(std::string_view label, const Ovel::IpAddrWithMask& addr) {
   return Zipmark::am4(label, addr.addr().value(), addr.len());
}

// The network and broadcast /32s of a subnet of length 30 or less, each
// unless it is the address itself.
std::size_t networkAndBroadcast(const Ovel::IpAddrWithMask& addr) {
   if (addr.len() > 30) {
      return 0;
   }
   return (addr.addr() != addr.subnet()) + (addr.addr() != addr.broadcast());
}

}  // namespace

class IpIntfSm::VokIpIntfStatus final : public Vok::Reactor<Ip::IpIntfStatus> {
 public:
   VokIpIntfStatus(Vok::Ptr<const Ip::IpIntfStatus> status, IpIntfSm& owner)
         : Vok::Reactor<Ip::IpIntfStatus>(std::move(status)), owner_(owner) {}

   void onActiveAddrWithMask() override { owner_.handleActiveAddress(activeAddr()); }
   void onActiveSecondaryWithMask(const Ovel::IpAddrWithMask& addr) override {
      owner_.handleSecondaryAddress(addr);
   }
   void onDirectedBroadcastEnabled() override { owner_.handleDirectedBroadcast(); }
   void onPeerPrefix(const Ovel::IpAddrWithMask& prefix) override {
      owner_.handlePeerPrefix(prefix);
   }
   void onNotifier() override {
      owner_.handleActiveAddress(activeAddr());
      owner_.handleDirectedBroadcast();
      owner_.syncPeerPrefixes();
   }

 private:
   Ovel::IpAddrWithMask activeAddr() const {
      return notifier() ? notifier()->activeAddrWithMask() : Ovel::IpAddrWithMask();
   }
   IpIntfSm& owner_;
};

IpIntfSm::IpIntfSm(Ovel::IntfId intfId, Vok::Ptr<const Ip::IpIntfStatus> ipIntfStatus,
                   Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm)
      : AddressMachine(std::move(intfId), std::move(intfBacklog), std::move(intfBacklogSm)) {
   reactor_ = std::make_unique<VokIpIntfStatus>(std::move(ipIntfStatus), *this);
   handleInitialized();
}

IpIntfSm::~IpIntfSm() {
   handleIntfDeletion();
   retire();
}

std::size_t IpIntfSm::candidatesFor(const Ip::IpIntfStatus& status) {
   std::size_t candidates = 0;
   const auto addAddress = [&](const Ovel::IpAddrWithMask& addr) {
      if (!addr.addr().isZero()) {
         // The subnet (the store keeps no default route), the host, the /32s.
         candidates += (addr.len() > 0 && addr.len() < 32) + 1 + networkAndBroadcast(addr);
      }
   };
   addAddress(status.activeAddrWithMask());
   for (const auto& [secondary, active] : status.activeSecondaryWithMask()) {
      if (active) {
         addAddress(secondary);  // a listed secondary that is not active holds nothing
      }
   }
   for (const Ovel::IpAddrWithMask& peer : status.peerPrefix()) {
      candidates += 1 + (peer.len() <= 30 ? 2 : 0);
   }
   return candidates;
}

Vok::Ptr<IpIntfSm> ipIntfSmFactory(Ovel::IntfId intfId,
                                   Vok::Ptr<const Ip::IpIntfStatus> ipIntfStatus,
                                   Vok::Ptr<IntfBacklog> intfBacklog,
                                   Vok::Ptr<IntfBacklogSm> intfBacklogSm) {
   return activeMachine<IpIntfSm>(std::move(intfId), std::move(ipIntfStatus), std::move(intfBacklog),
                                  std::move(intfBacklogSm));
}

const Vok::Ptr<const Ip::IpIntfStatus>& IpIntfSm::ipIntfStatus() const noexcept {
   return reactor_->notifier();
}

void IpIntfSm::ipIntfStatusIs(Vok::Ptr<const Ip::IpIntfStatus> status) {
   reactor_->notifierIs(std::move(status));
}

IntfViaSetKeyStatus& IpIntfSm::keyStatus() const {
   return *Vok::ValidPtr<IntfViaSetKeyStatus>(intfBacklog_->intfViaSetKeyStatus4());
}

void IpIntfSm::add(const Ovel::IpGenPrefix& prefix, const Ovel::IpGenAddrWithMask& addr,
                   Fib::RouteType type, Rib::ViaSetKey viaSetKey) {
   intfBacklog_->addToIntfIdsByPrefix(intfId_, prefix, addr, type, viaSetKey);
}

void IpIntfSm::remove(const Ovel::IpGenPrefix& prefix, const Ovel::IpGenAddrWithMask& addr) {
   intfBacklog_->delFromIntfIdsByPrefix(intfId_, prefix, addr);
}

void IpIntfSm::updateIntfIdsByPrefix(const Ovel::IpAddrWithMask& addr, bool del) {
   if (addr.addr().isZero()) {
      return;
   }
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "addr=" << addr << " del=" << flagText(del));
   const Ovel::IpGenAddrWithMask genAddr(addr);
   const Ovel::IpGenPrefix subnet(addr.subnet(), addr.len());
   const Ovel::IpGenPrefix host(addr.addr(), 32);
   const bool hasSubnet = addr.len() <= 31;
   if (!del) {
      if (addedPeerPrefixes_.contains(addr)) {
         updatePeerPrefix(addr, true);  // the address takes its keys over
      }
      const IntfViaSetKey keys =
            intfBacklogSm_->findOrCreateViaSetKey(intfId_, Ovel::AddressFamily::ipv4);
      if (hasSubnet) {
         add(subnet, genAddr, Fib::RouteType::attachedSubnet, keys.viaSetKey());
      }
      add(host, genAddr,
          hasSubnet ? Fib::RouteType::hostOfSubnetAddress : Fib::RouteType::hostOfFullLengthAddress,
          keys.rxViaSetKey());
      updateBcastRoute(addr, false);
      keyStatus().incIntfVskRefcount(intfId_);
      return;
   }
   if (addedPeerPrefixes_.contains(addr)) {
      return;  // the keys are the peer prefix's: the address never held them
   }
   if (hasSubnet) {
      remove(subnet, genAddr);
   }
   remove(host, genAddr);
   updateBcastRoute(addr, true);
   // Another address, or an installed route, may still hold the keys.
   intfBacklogSm_->doReleaseViaSetKey(intfId_, Ovel::AddressFamily::ipv4);
}

void IpIntfSm::updateBcastRoute(const Ovel::IpAddrWithMask& addr, bool del) {
   if (addr.addr().isZero()) {
      return;
   }
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "addr=" << addr << " del=" << flagText(del));
   if (addr.len() > 30) {
      return;  // /31 and /32 have no network or broadcast address
   }
   // Linux accepts an address equal to its subnet's network or broadcast
   // address and gives it a local route. Its host entry already claims that
   // /32 under the same candidate key, so the network or broadcast entry
   // would overwrite the receive route and be removed twice: leave it out.
   updateNetworkAndBroadcast(addr, Ovel::IpGenAddrWithMask(addr), addr.subnet() != addr.addr(),
                             addr.broadcast() != addr.addr(), del);
}

void IpIntfSm::updateNetworkAndBroadcast(const Ovel::IpAddrWithMask& subnet,
                                         const Ovel::IpGenAddrWithMask& genAddr, bool withNetwork,
                                         bool withBroadcast, bool del) {
   const Ovel::IpGenPrefix network(subnet.subnet(), 32);
   const Ovel::IpGenPrefix broadcast(subnet.broadcast(), 32);
   if (del) {
      if (withNetwork) {
         remove(network, genAddr);
      }
      if (withBroadcast) {
         remove(broadcast, genAddr);
      }
      return;
   }
   // The count belongs to the address as a whole, so it is not moved here.
   const IntfViaSetKey keys =
         intfBacklogSm_->findOrCreateViaSetKey(intfId_, Ovel::AddressFamily::ipv4);
   if (withNetwork) {
      add(network, genAddr, Fib::RouteType::networkOrBroadcastReceive, keys.rxBcastViaSetKey());
   }
   if (!withBroadcast) {
      return;
   }
   const auto& status = ipIntfStatus();
   if (status && status->directedBroadcastEnabled()) {
      add(broadcast, genAddr, Fib::RouteType::directedBroadcast, keys.directedBcastViaSetKey());
   } else {
      add(broadcast, genAddr, Fib::RouteType::networkOrBroadcastReceive, keys.rxBcastViaSetKey());
   }
}

void IpIntfSm::updatePeerPrefix(const Ovel::IpAddrWithMask& prefix, bool del) {
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "peer=" << prefix << " del=" << flagText(del));
   const Ovel::IpGenAddrWithMask genAddr(prefix);
   const Ovel::IpGenPrefix subnet(prefix.subnet(), prefix.len());
   const bool networkAndBroadcast = prefix.len() <= 30;
   if (!del) {
      const IntfViaSetKey keys =
            intfBacklogSm_->findOrCreateViaSetKey(intfId_, Ovel::AddressFamily::ipv4);
      add(subnet, genAddr, Fib::RouteType::attachedSubnet, keys.viaSetKey());
      if (networkAndBroadcast) {
         updateNetworkAndBroadcast(prefix, genAddr, true, true, false);
      }
      keyStatus().incIntfVskRefcount(intfId_);
      addedPeerPrefixes_.insert(prefix);
      return;
   }
   remove(subnet, genAddr);
   if (networkAndBroadcast) {
      updateNetworkAndBroadcast(prefix, genAddr, true, true, true);
   }
   addedPeerPrefixes_.erase(prefix);
   intfBacklogSm_->doReleaseViaSetKey(intfId_, Ovel::AddressFamily::ipv4);
}

void IpIntfSm::releaseRole(const Ovel::IpAddrWithMask& addr, bool otherRoleHolds) {
   if (!otherRoleHolds || addr.addr().isZero()) {
      updateIntfIdsByPrefix(addr, true);
      return;
   }
   // The address's other role still claims every entry: give back only the
   // count this role took. The other role's count keeps the keys alive.
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "addr=" << addr << " kept by its other role");
   intfBacklogSm_->doReleaseViaSetKey(intfId_, Ovel::AddressFamily::ipv4);
}

void IpIntfSm::handleActiveAddress(const Ovel::IpAddrWithMask& addr) {
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "addr=" << addr << " prev=" << prevActiveAddr_);
   ZIPMARK(1, "handleActiveAddress", Zipmark::text("vrf=", vrfName().str()),
           Zipmark::text(" intf=", intfId_.name()), am4(" addr=", addr),
           am4(" prevAddr=", prevActiveAddr_));
   const Ovel::IpAddrWithMask prev = prevActiveAddr_;
   if (prev != addr) {
      // The old active address keeps its entries while it still counts as
      // a secondary.
      releaseRole(prev, countedSecondaries_.contains(prev));
   }
   // Also when unchanged: a repeat adds (and counts) the address again.
   updateIntfIdsByPrefix(addr, false);
   prevActiveAddr_ = addr;
   if (prev != addr) {
      handlePeerPrefix(prev);  // a peer prefix the old address held back
   }
}

void IpIntfSm::handleSecondaryAddress(const Ovel::IpAddrWithMask& addr) {
   const auto& status = ipIntfStatus();
   const std::optional<bool> active =
         status ? status->activeSecondaryWithMask(addr) : std::optional<bool>();
   const bool missing = !active || !*active;
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "addr=" << addr << " missing=" << flagText(missing));
   ZIPMARK(1, "handleSecondaryAddress", Zipmark::text("vrf=", vrfName().str()),
           Zipmark::text(" intf=", intfId_.name()), am4(" addr=", addr),
           Zipmark::boolean(" missing=", missing));
   if (missing) {
      // The kernel promotes a secondary by announcing it as the active
      // address while it is still listed: its secondary role then goes
      // while its active role keeps the routes.
      const bool counted = countedSecondaries_.erase(addr) > 0;
      releaseRole(addr, counted && addr == prevActiveAddr_);
      handlePeerPrefix(addr);  // a peer prefix the address held back
      return;
   }
   updateIntfIdsByPrefix(addr, false);
   if (!addr.addr().isZero()) {
      countedSecondaries_.insert(addr);
   }
}

void IpIntfSm::handleDirectedBroadcast() {
   const auto& status = ipIntfStatus();
   const bool enabled = status && status->directedBroadcastEnabled();
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "enabled=" << flagText(enabled));
   ZIPMARK(1, "handleDirectedBroadcast", Zipmark::text("vrf=", vrfName().str()),
           Zipmark::text(" intf=", intfId_.name()), Zipmark::boolean(" enabled=", enabled));
   if (!status) {
      return;
   }
   updateBcastRoute(status->activeAddrWithMask(), false);
   // Every listed secondary, active or not, gets its entries re-added.
   for (const auto& [secondary, active] : status->activeSecondaryWithMask()) {
      updateBcastRoute(secondary, false);
   }
   for (const auto& prefix : addedPeerPrefixes_) {
      if (prefix.len() <= 30) {
         updateNetworkAndBroadcast(prefix, Ovel::IpGenAddrWithMask(prefix), true, true, false);
      }
   }
}

// Listed, and not an address whose entries this machine holds.
bool IpIntfSm::peerPrefixWanted(const Ovel::IpAddrWithMask& prefix) const {
   const auto& status = ipIntfStatus();
   return status && status->peerPrefix(prefix) && prevActiveAddr_ != prefix &&
          !countedSecondaries_.contains(prefix);
}

void IpIntfSm::handleInitialized() {
   VOK_TRACE(connectedRouteTrace(), 0, describe(), "");
   ZIPMARK(1, "handleInitialized", Zipmark::text("vrf=", vrfName().str()));
   initialized_ = true;
   const auto& status = ipIntfStatus();
   handleActiveAddress(status ? status->activeAddrWithMask() : Ovel::IpAddrWithMask());
   if (!status) {
      return;
   }
   for (const auto& [secondary, active] : status->activeSecondaryWithMask()) {
      handleSecondaryAddress(secondary);
   }
   syncPeerPrefixes();
}

void IpIntfSm::handleIntfDeletion() {
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "");
   ZIPMARK(1, "handleIntfDeletion", Zipmark::text("vrfName=", vrfName().str()),
           Zipmark::text(" intf=", intfId_.name()));
   const auto& status = ipIntfStatus();
   // What the status lists now, not what was last handed to the store. An
   // active address also listed as a secondary gives back its count here
   // and its entries with the secondary below.
   const Ovel::IpAddrWithMask active = status ? status->activeAddrWithMask() : Ovel::IpAddrWithMask();
   releaseRole(active, active == prevActiveAddr_ && countedSecondaries_.contains(active));
   prevActiveAddr_ = Ovel::IpAddrWithMask();
   countedSecondaries_.clear();
   while (!addedPeerPrefixes_.empty()) {
      updatePeerPrefix(*addedPeerPrefixes_.begin(), true);
   }
   if (!status) {
      return;
   }
   for (const auto& [secondary, listedActive] : status->activeSecondaryWithMask()) {
      updateIntfIdsByPrefix(secondary, true);
   }
}

}  // namespace Routing::ConnectedRoute
