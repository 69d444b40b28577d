// The IPv6 watcher of a VRF: follows Ip6::Status::vrfIp6IntfStatus[vrf] with
// an Ip6IntfStatusSm and sets VrfReadyStatus::v6ConnectedRoutesReady.
#pragma once

#include "tracking/Ip6IntfStatusSm.h"
#include "tracking/VrfIntfStatusWatcherSm.h"

namespace Routing::ConnectedRoute {

struct Ipv6Watch {
   using Status = Ip6::Status;
   using VrfStatus = Ip6::VrfIp6IntfStatus;
   using Gate = Ip6IntfStatusSm;

   static constexpr std::string_view kInstantiatingText = "Initializing ip6IntfStatusSm";
   static constexpr std::string_view kInitializingMark = " initializing ip6IntfStatusSm vrf=";
   static constexpr std::string_view kDeletingMark = " deleting ip6IntfStatusSm vrf=";
   static constexpr std::string_view kWaitingForVerificationText =
         "Returning without setting ready for v6 connected routes as startReadyVerification not "
         "set yet for vrf : ";
   static constexpr std::string_view kWaitingForBacklogText =
         "Returning without setting ready for v6 connected routes as intfBacklog not empty yet "
         "for vrf: ";
   static constexpr std::string_view kSettingReadyText =
         "Setting ready for v6 connected routes for vrf : ";

   static Vok::Ptr<VrfStatus> vrfStatus(const Status& s, const L3::VrfName& name) {
      return s.vrfIp6IntfStatus(name);
   }
   static bool ready(const VrfReadyStatus& r) { return r.v6ConnectedRoutesReady(); }
   static void readyIs(VrfReadyStatus& r) { r.v6ConnectedRoutesReadyIs(true); }

   template <class Owner>
   class StatusReactor : public Vok::Reactor<Status> {
    public:
      StatusReactor(Vok::Ptr<const Status> status, Owner& owner)
            : Vok::Reactor<Status>(std::move(status)), owner_(owner) {}
      void onVrfIp6IntfStatus(const L3::VrfName& name) override { owner_.handleVrfStatus(name); }

    private:
      Owner& owner_;
   };
};

// Instantiated once, in Watchers.cc.
extern template class VrfIntfStatusWatcherSm<Ipv6Watch>;

class VrfIp6IntfStatusSm final : public VrfIntfStatusWatcherSm<Ipv6Watch> {
 public:
   using VrfIntfStatusWatcherSm::VrfIntfStatusWatcherSm;

   void handleVrfIp6IntfStatus(const L3::VrfName& name) { handleVrfStatus(name); }
   const Vok::Ptr<Ip6IntfStatusSm>& ip6IntfStatusSm() const noexcept { return gate(); }
   Vok::Ptr<Ip6IntfStatusSm> ip6IntfStatusSmIs(Vok::Ptr<const Ip6::VrfIp6IntfStatus> vrfStatus,
                                               Vok::Ptr<IntfBacklog> intfBacklog,
                                               Vok::Ptr<IntfBacklogSm> intfBacklogSm,
                                               Vok::Ptr<const KernelIntfStatus> kernelIntfStatus) {
      return gateIs(std::move(vrfStatus), std::move(intfBacklog), std::move(intfBacklogSm),
                    std::move(kernelIntfStatus));
   }
   void ip6IntfStatusSmDel() { gateDel(); }
};

}  // namespace Routing::ConnectedRoute
