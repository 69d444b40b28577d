// The IPv4 watcher of a VRF: follows Ip::Status::vrfIpIntfStatus[vrf] with
// an IpIntfStatusSm and sets VrfReadyStatus::v4ConnectedRoutesReady.
#pragma once

#include "tracking/IpIntfStatusSm.h"
#include "tracking/VrfIntfStatusWatcherSm.h"

namespace Routing::ConnectedRoute {

struct Ipv4Watch {
   using Status = Ip::Status;
   using VrfStatus = Ip::VrfIpIntfStatus;
   using Gate = IpIntfStatusSm;

   static constexpr std::string_view kInstantiatingText = "Instantiating IpIntfStatusSm";
   static constexpr std::string_view kInitializingMark = " initializing ipIntfStatusSm vrf=";
   static constexpr std::string_view kDeletingMark = " deleting ipIntfStatusSm vrf=";
   static constexpr std::string_view kWaitingForVerificationText =
         "Returning without setting ready for v4 connected routes as startReadyVerification not "
         "set yet for vrf : ";
   static constexpr std::string_view kWaitingForBacklogText =
         "Returning without setting ready for v4 connected routes as intfBacklog not empty yet "
         "for vrf: ";
   static constexpr std::string_view kSettingReadyText =
         "Setting ready for v4 connected routes for vrf : ";

   static Vok::Ptr<VrfStatus> vrfStatus(const Status& s, const L3::VrfName& name) {
      return s.vrfIpIntfStatus(name);
   }
   static bool ready(const VrfReadyStatus& r) { return r.v4ConnectedRoutesReady(); }
   static void readyIs(VrfReadyStatus& r) { r.v4ConnectedRoutesReadyIs(true); }

   template <class Owner>
   class StatusReactor : public Vok::Reactor<Status> {
    public:
      StatusReactor(Vok::Ptr<const Status> status, Owner& owner)
            : Vok::Reactor<Status>(std::move(status)), owner_(owner) {}
      void onVrfIpIntfStatus(const L3::VrfName& name) override { owner_.handleVrfStatus(name); }

    private:
      Owner& owner_;
   };
};

// Instantiated once, in Watchers.cc.
extern template class VrfIntfStatusWatcherSm<Ipv4Watch>;

class VrfIpIntfStatusSm final : public VrfIntfStatusWatcherSm<Ipv4Watch> {
 public:
   using VrfIntfStatusWatcherSm::VrfIntfStatusWatcherSm;

   void handleVrfIpIntfStatus(const L3::VrfName& name) { handleVrfStatus(name); }
   const Vok::Ptr<IpIntfStatusSm>& ipIntfStatusSm() const noexcept { return gate(); }
   Vok::Ptr<IpIntfStatusSm> ipIntfStatusSmIs(Vok::Ptr<const Ip::VrfIpIntfStatus> vrfIpIntfStatus,
                                             Vok::Ptr<IntfBacklog> intfBacklog,
                                             Vok::Ptr<IntfBacklogSm> intfBacklogSm,
                                             Vok::Ptr<const KernelIntfStatus> kernelIntfStatus) {
      return gateIs(std::move(vrfIpIntfStatus), std::move(intfBacklog), std::move(intfBacklogSm),
                    std::move(kernelIntfStatus));
   }
   void ipIntfStatusSmDel() { gateDel(); }
};

}  // namespace Routing::ConnectedRoute
