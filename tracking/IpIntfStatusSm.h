// The IPv4 gate: the interfaces of the VRF's Ip::VrfIpIntfStatus that have a
// kernel device each get an IpIntfSm.
#pragma once

#include "platform/ip/IpIntfStatus.h"
#include "tracking/IntfStatusGateSm.h"
#include "tracking/IpIntfSm.h"

namespace Routing::ConnectedRoute {

struct Ipv4Gate {
   using VrfStatus = Ip::VrfIpIntfStatus;
   using IntfStatus = Ip::IpIntfStatus;
   using Machine = IpIntfSm;

   static constexpr std::string_view kStatusAttribute = "ipIntfStatus";
   static constexpr std::string_view kNotPresentInStatus = " not present in vrfIpIntfStatus";
   static constexpr std::string_view kCreateMark = " IPv4 SM create";
   static constexpr std::string_view kDeleteMark = " IPv4 SM delete";

   static const VrfStatus::Collection& statuses(const VrfStatus& s) { return s.ipIntfStatus(); }
   static Vok::Ptr<IntfStatus> status(const VrfStatus& s, const Ovel::IntfId& intfId) {
      return s.ipIntfStatus(intfId);
   }
   static const Vok::Ptr<const IntfStatus>& machineStatus(const Machine& m) {
      return m.ipIntfStatus();
   }
   static Vok::Ptr<Machine> create(Ovel::IntfId intfId, Vok::Ptr<const IntfStatus> status,
                                   Vok::Ptr<IntfBacklog> backlog, Vok::Ptr<IntfBacklogSm> sm) {
      return ipIntfSmFactory(intfId, std::move(status), std::move(backlog), std::move(sm));
   }

   template <class Owner>
   class StatusReactor : public Vok::Reactor<VrfStatus> {
    public:
      StatusReactor(Vok::Ptr<const VrfStatus> status, Owner& owner)
            : Vok::Reactor<VrfStatus>(std::move(status)), owner_(owner) {}
      void onIpIntfStatus(const Ovel::IntfId& intfId) override { owner_.handleIntfId(intfId); }

    private:
      Owner& owner_;
   };
};

// Instantiated once, in Watchers.cc.
extern template class IntfStatusGateSm<Ipv4Gate>;

class IpIntfStatusSm final : public IntfStatusGateSm<Ipv4Gate> {
 public:
   using IntfStatusGateSm::IntfStatusGateSm;

   void handleIpIntfStatus() { handleStatuses(); }
   Vok::Ptr<IpIntfSm> ipIntfSmIs(const Ovel::IntfId& intfId,
                                 Vok::Ptr<const Ip::IpIntfStatus> ipIntfStatus,
                                 Vok::Ptr<IntfBacklog> intfBacklog,
                                 Vok::Ptr<IntfBacklogSm> intfBacklogSm) {
      return machineIs(intfId, std::move(ipIntfStatus), std::move(intfBacklog),
                       std::move(intfBacklogSm));
   }
   void ipIntfSmDel(const Ovel::IntfId& intfId) { machineDel(intfId); }
   Vok::Ptr<IpIntfSm> ipIntfSm(const Ovel::IntfId& intfId) const { return machine(intfId); }
   const Vok::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus() const { return vrfStatus(); }
};

}  // namespace Routing::ConnectedRoute
