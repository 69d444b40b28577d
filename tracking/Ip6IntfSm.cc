#include "tracking/Ip6IntfSm.h"

#include "platform/trace/Zipmark.h"
#include "tracking/ConnectedRouteTrace.h"

namespace Routing::ConnectedRoute {

class Ip6IntfSm::VokIp6IntfStatus final : public Vok::Reactor<Ip6::IntfStatus> {
 public:
   VokIp6IntfStatus(Vok::Ptr<const Ip6::IntfStatus> status, Ip6IntfSm& owner)
         : Vok::Reactor<Ip6::IntfStatus>(std::move(status)), owner_(owner) {}
   void onAddr(const Ovel::Ip6AddrWithMask& addr) override { owner_.handleIp6Address(addr); }
   void onPeerPrefix(const Ovel::Ip6AddrWithMask& prefix) override {
      owner_.handlePeerPrefix(prefix);
   }
   void onNotifier() override { owner_.syncPeerPrefixes(); }

 private:
   Ip6IntfSm& owner_;
};

Ip6IntfSm::Ip6IntfSm(Ovel::IntfId intfId, Vok::Ptr<const Ip6::IntfStatus> ip6IntfStatus,
                     Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm)
      : AddressMachine(std::move(intfId), std::move(intfBacklog), std::move(intfBacklogSm)) {
   reactor_ = std::make_unique<VokIp6IntfStatus>(std::move(ip6IntfStatus), *this);
   handleInitialized();
}

Ip6IntfSm::~Ip6IntfSm() {
   handleIntfDeletion();
   retire();
}

std::size_t Ip6IntfSm::candidatesFor(const Ip6::IntfStatus& status) {
   std::size_t candidates = status.peerPrefix().size();  // an attached route each
   for (const auto& [addr, info] : status.addr()) {
      if (info != Ip6::AddressInfo() && !addr.addr().isZero() && !addr.addr().isLinkLocal()) {
         candidates += (addr.len() < 128) + 1;  // the subnet and the host
      }
   }
   return candidates;
}

Vok::Ptr<Ip6IntfSm> ip6IntfSmFactory(Ovel::IntfId intfId,
                                     Vok::Ptr<const Ip6::IntfStatus> ip6IntfStatus,
                                     Vok::Ptr<IntfBacklog> intfBacklog,
                                     Vok::Ptr<IntfBacklogSm> intfBacklogSm) {
   return activeMachine<Ip6IntfSm>(std::move(intfId), std::move(ip6IntfStatus),
                                   std::move(intfBacklog), std::move(intfBacklogSm));
}

const Vok::Ptr<const Ip6::IntfStatus>& Ip6IntfSm::ip6IntfStatus() const noexcept {
   return reactor_->notifier();
}

void Ip6IntfSm::ip6IntfStatusIs(Vok::Ptr<const Ip6::IntfStatus> status) {
   reactor_->notifierIs(std::move(status));
}

IntfViaSetKeyStatus& Ip6IntfSm::keyStatus() const {
   return *Vok::ValidPtr<IntfViaSetKeyStatus>(intfBacklog_->intfViaSetKeyStatus6());
}

void Ip6IntfSm::updateIntfIdsByPrefix(const Ovel::Ip6AddrWithMask& addr, bool del) {
   if (addr.addr().isZero() || addr.addr().isLinkLocal()) {
      return;  // link-local addresses never become routes
   }
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "addr=" << addr << " del=" << flagText(del));
   const Ovel::IpGenAddrWithMask genAddr(addr);
   const Ovel::IpGenPrefix subnet(addr.subnet(), addr.len());
   const Ovel::IpGenPrefix host(addr.addr(), 128);
   const bool hasSubnet = addr.len() <= 127;
   if (!del) {
      if (addedPeerPrefixes_.contains(addr)) {
         updatePeerPrefix(addr, true);  // the address takes its keys over
      }
      const IntfViaSetKey keys =
            intfBacklogSm_->findOrCreateViaSetKey(intfId_, Ovel::AddressFamily::ipv6);
      if (hasSubnet) {
         intfBacklog_->addToIntfIdsByPrefix(intfId_, subnet, genAddr,
                                            Fib::RouteType::attachedSubnet, keys.viaSetKey());
      }
      intfBacklog_->addToIntfIdsByPrefix(
            intfId_, host, genAddr,
            hasSubnet ? Fib::RouteType::hostOfSubnetAddress : Fib::RouteType::hostOfFullLengthAddress,
            keys.rxViaSetKey());
      keyStatus().incIntfVskRefcount(intfId_);
      return;
   }
   if (addedPeerPrefixes_.contains(addr)) {
      return;  // the keys are the peer prefix's: the address never held them
   }
   if (hasSubnet) {
      intfBacklog_->delFromIntfIdsByPrefix(intfId_, subnet, genAddr);
   }
   intfBacklog_->delFromIntfIdsByPrefix(intfId_, host, genAddr);
   intfBacklogSm_->doReleaseViaSetKey(intfId_, Ovel::AddressFamily::ipv6);
}

void Ip6IntfSm::handleIp6Address(const Ovel::Ip6AddrWithMask& addr) {
   const auto& status = ip6IntfStatus();
   const bool found = status && status->addr(addr) != Ip6::AddressInfo();
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "addr=" << addr << " found=" << flagText(found));
   ZIPMARK(1, "handleIp6Address", Zipmark::text("vrf=", vrfName().str()),
           Zipmark::text(" intf=", intfId_.name()),
           Zipmark::am6(" addr=", addr.addr().bytes(), addr.len()),
           Zipmark::boolean(" found=", found));
   updateIntfIdsByPrefix(addr, !found);
   if (!found) {
      handlePeerPrefix(addr);  // a peer prefix the address held back
   }
}

void Ip6IntfSm::updatePeerPrefix(const Ovel::Ip6AddrWithMask& prefix, bool del) {
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "peer=" << prefix << " del=" << flagText(del));
   const Ovel::IpGenAddrWithMask genAddr(prefix);
   const Ovel::IpGenPrefix subnet(prefix.subnet(), prefix.len());
   if (!del) {
      const IntfViaSetKey keys =
            intfBacklogSm_->findOrCreateViaSetKey(intfId_, Ovel::AddressFamily::ipv6);
      intfBacklog_->addToIntfIdsByPrefix(intfId_, subnet, genAddr, Fib::RouteType::attachedSubnet,
                                         keys.viaSetKey());
      keyStatus().incIntfVskRefcount(intfId_);
      addedPeerPrefixes_.insert(prefix);
      return;
   }
   intfBacklog_->delFromIntfIdsByPrefix(intfId_, subnet, genAddr);
   addedPeerPrefixes_.erase(prefix);
   intfBacklogSm_->doReleaseViaSetKey(intfId_, Ovel::AddressFamily::ipv6);
}

bool Ip6IntfSm::peerPrefixWanted(const Ovel::Ip6AddrWithMask& prefix) const {
   const auto& status = ip6IntfStatus();
   return status && status->peerPrefix(prefix) && status->addr(prefix) == Ip6::AddressInfo();
}

void Ip6IntfSm::handleInitialized() {
   VOK_TRACE(connectedRouteTrace(), 0, describe(), "");
   ZIPMARK(1, "handleInitialized", Zipmark::text("vrf=", vrfName().str()));
   initialized_ = true;
   if (const auto& status = ip6IntfStatus()) {
      for (const auto& [addr, info] : status->addr()) {
         handleIp6Address(addr);
      }
   }
   syncPeerPrefixes();
}

void Ip6IntfSm::handleIntfDeletion() {
   VOK_TRACE(connectedRouteTrace(), 8, describe(), "");
   ZIPMARK(1, "handleIntfDeletion", Zipmark::text("vrfName=", vrfName().str()),
           Zipmark::text(" intf=", intfId_.name()));
   if (const auto& status = ip6IntfStatus()) {
      // Whatever each listed address's record says.
      for (const auto& [addr, info] : status->addr()) {
         updateIntfIdsByPrefix(addr, true);
      }
   }
   while (!addedPeerPrefixes_.empty()) {
      updatePeerPrefix(*addedPeerPrefixes_.begin(), true);
   }
}

}  // namespace Routing::ConnectedRoute
