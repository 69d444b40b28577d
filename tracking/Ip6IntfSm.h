// The IPv6 address machine of one interface: every listed address whose
// information differs from the default record, other than :: and link-local
// addresses, becomes its subnet (type 11, unless /128) and host /128 (type
// 1, or 2 for a /128) candidates, counted in the store's IPv6 via-set-key
// table. There is no active address and no broadcast.
#pragma once

#include <memory>

#include "install/IntfBacklogSm.h"
#include "platform/ip6/Ip6IntfStatus.h"

namespace Routing::ConnectedRoute {

class Ip6IntfSm final : public Vok::Entity {
 public:
   Ip6IntfSm(Ovel::IntfId intfId, Vok::Ptr<const Ip6::IntfStatus> ip6IntfStatus,
             Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm);
   ~Ip6IntfSm() override;

   void handleInitialized();
   void handleIp6Address(const Ovel::Ip6AddrWithMask& addr);
   void handleIntfDeletion();
   void updateIntfIdsByPrefix(const Ovel::Ip6AddrWithMask& addr, bool del);

   const Ovel::IntfId& intfId() const noexcept { return intfId_; }
   const Vok::Ptr<const Ip6::IntfStatus>& ip6IntfStatus() const noexcept;
   // Watches another status object (without replaying it).
   void ip6IntfStatusIs(Vok::Ptr<const Ip6::IntfStatus> status);
   const Vok::Ptr<IntfBacklog>& intfBacklog() const noexcept { return intfBacklog_; }
   const Vok::Ptr<IntfBacklogSm>& intfBacklogSm() const noexcept { return intfBacklogSm_; }
   bool initialized() const noexcept { return initialized_; }
   L3::VrfName vrfName() const;
   void hasNotificationActiveIs(bool active);

 private:
   class VokIp6IntfStatus;

   std::string describe() const;
   IntfViaSetKeyStatus& keyStatus() const;

   Ovel::IntfId intfId_;
   Vok::Ptr<IntfBacklog> intfBacklog_;
   Vok::Ptr<IntfBacklogSm> intfBacklogSm_;
   std::unique_ptr<VokIp6IntfStatus> reactor_;
   bool initialized_ = false;
};

Vok::Ptr<Ip6IntfSm> ip6IntfSmFactory(Ovel::IntfId intfId,
                                     Vok::Ptr<const Ip6::IntfStatus> ip6IntfStatus,
                                     Vok::Ptr<IntfBacklog> intfBacklog,
                                     Vok::Ptr<IntfBacklogSm> intfBacklogSm);

}  // namespace Routing::ConnectedRoute
