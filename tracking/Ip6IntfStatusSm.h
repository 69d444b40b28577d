// The IPv6 gate: the interfaces of the VRF's Ip6::VrfIp6IntfStatus that have
// a kernel device each get an Ip6IntfSm.
#pragma once

#include "platform/ip6/Ip6IntfStatus.h"
#include "tracking/Ip6IntfSm.h"
#include "tracking/IntfStatusGateSm.h"

namespace Routing::ConnectedRoute {

struct Ipv6Gate {
   using VrfStatus = Ip6::VrfIp6IntfStatus;
   using IntfStatus = Ip6::IntfStatus;
   using Machine = Ip6IntfSm;

   static constexpr std::string_view kStatusAttribute = "ip6IntfStatus";
   static constexpr std::string_view kNotPresentInStatus = " not present in vrfIp6IntfStatus";
   static constexpr std::string_view kCreateMark = " IPv6 SM create";
   static constexpr std::string_view kDeleteMark = " IPv6 SM delete";

   static const VrfStatus::Collection& statuses(const VrfStatus& s) { return s.ip6IntfStatus(); }
   static Vok::Ptr<IntfStatus> status(const VrfStatus& s, const Ovel::IntfId& intfId) {
      return s.ip6IntfStatus(intfId);
   }
   static const Vok::Ptr<const IntfStatus>& machineStatus(const Machine& m) {
      return m.ip6IntfStatus();
   }
   static Vok::Ptr<Machine> create(Ovel::IntfId intfId, Vok::Ptr<const IntfStatus> status,
                                   Vok::Ptr<IntfBacklog> backlog, Vok::Ptr<IntfBacklogSm> sm) {
      return ip6IntfSmFactory(intfId, std::move(status), std::move(backlog), std::move(sm));
   }

   template <class Owner>
   class StatusReactor : public Vok::Reactor<VrfStatus> {
    public:
      StatusReactor(Vok::Ptr<const VrfStatus> status, Owner& owner)
            : Vok::Reactor<VrfStatus>(std::move(status)), owner_(owner) {}
      void onIp6IntfStatus(const Ovel::IntfId& intfId) override { owner_.handleIntfId(intfId); }

    private:
      Owner& owner_;
   };
};

// Instantiated once, in Watchers.cc.
extern template class IntfStatusGateSm<Ipv6Gate>;

class Ip6IntfStatusSm final : public IntfStatusGateSm<Ipv6Gate> {
 public:
   using IntfStatusGateSm::IntfStatusGateSm;

   void handleIp6IntfStatus() { handleStatuses(); }
   Vok::Ptr<Ip6IntfSm> ip6IntfSmIs(const Ovel::IntfId& intfId,
                                   Vok::Ptr<const Ip6::IntfStatus> ip6IntfStatus,
                                   Vok::Ptr<IntfBacklog> intfBacklog,
                                   Vok::Ptr<IntfBacklogSm> intfBacklogSm) {
      return machineIs(intfId, std::move(ip6IntfStatus), std::move(intfBacklog),
                       std::move(intfBacklogSm));
   }
   void ip6IntfSmDel(const Ovel::IntfId& intfId) { machineDel(intfId); }
   Vok::Ptr<Ip6IntfSm> ip6IntfSm(const Ovel::IntfId& intfId) const { return machine(intfId); }
   const Vok::Ptr<const Ip6::VrfIp6IntfStatus>& vrfIp6IntfStatus() const { return vrfStatus(); }
};

}  // namespace Routing::ConnectedRoute
