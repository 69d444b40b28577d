#include "lifecycle/ContainerSm.h"

#include "install/IntfBacklogSmTrace.h"
#include "platform/rib/TablePaths.h"
#include "tracking/ConnectedRouteTrace.h"

namespace Routing::ConnectedRoute {

namespace {

constexpr std::size_t kRouteCollectionSize = 4112;
constexpr std::size_t kViaCollectionSize = 1028;

constexpr Ovel::AddressFamily kFamilies[] = {Ovel::AddressFamily::ipv4, Ovel::AddressFamily::ipv6};

int ipVersion(Ovel::AddressFamily af) { return af == Ovel::AddressFamily::ipv4 ? 4 : 6; }

void unmount(Vok::Ptr<VokPlim::Mount>& mount) {
   if (mount) {
      mount->unmount();
      mount = nullptr;
   }
}

}  // namespace

ContainerSm::ContainerSm(
      Vok::Ptr<const Kordb::EntityManager> entityManager, L3::VrfName vrfName, VrfId vrfId,
      Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<const Ip::Status> ipStatus,
      Vok::Ptr<const Ip6::Status> ip6Status,
      Vok::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper> nameToIdMapWrapper,
      Vok::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
      Vok::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
      Vok::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
      Vok::Ptr<Interface::NetNsIntfStatusManagerRoot> intfStatusManagerRoot,
      Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig,
      Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig, Vok::Ptr<const IvoState> ivoState,
      Vok::Ptr<VrfReadyStatus> vrfReadyStatus)
      : entityManager_(std::move(entityManager)),
        vrfName_(std::move(vrfName)),
        vrfId_(vrfId),
        ipStatus_(std::move(ipStatus)),
        ip6Status_(std::move(ip6Status)),
        nameToIdMapWrapper_(std::move(nameToIdMapWrapper)),
        allVrfStatusLocal_(std::move(allVrfStatusLocal)),
        allIntfStatusDir_(std::move(allIntfStatusDir)),
        allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)),
        intfStatusManagerRoot_(std::move(intfStatusManagerRoot)),
        ivoState_(std::move(ivoState)),
        vrfReadyStatus_(std::move(vrfReadyStatus)),
        tables_{{nullptr, nullptr, std::move(route4OrmoConfig)},
                {nullptr, nullptr, std::move(route6OrmoConfig)},
                std::move(viaSetConfig)} {
   try {
      handleInitialized();
   } catch (...) {
      // The destructor will not run: give back what outlives this object
      // (the namespace manager's use, mounts, via sets) the way it would.
      teardown();
      throw;
   }
}

ContainerSm::~ContainerSm() { teardown(); }

void ContainerSm::teardown() noexcept {
   doCleanup();
   intfBacklog_ = nullptr;
   intfBacklogSm_ = nullptr;
   vrfIpIntfStatusSm_ = nullptr;
   vrfIp6IntfStatusSm_ = nullptr;
   kernelIntfStatus_ = nullptr;
}

std::string ContainerSm::rib4Path(VrfId vrfId) { return Rib::routeTablePath(4, vrfId.value()); }
std::string ContainerSm::rib6Path(VrfId vrfId) { return Rib::routeTablePath(6, vrfId.value()); }
std::string ContainerSm::via4Path(VrfId vrfId) { return Rib::viaTablePath(4, vrfId.value()); }
std::string ContainerSm::via6Path(VrfId vrfId) { return Rib::viaTablePath(6, vrfId.value()); }
std::string ContainerSm::kniPath(const Ovel::NamespaceName& netNs) {
   return "kni/ns/" + netNs.str() + "/status";
}

Vok::Ptr<VokPlim::Mount> ContainerSm::mountTable(const std::string& path, std::string_view type,
                                                 std::string_view collection, std::size_t size) {
   return Vok::ValidPtr<const Kordb::EntityManager>(entityManager_.get())
         ->mount(path, type, Kordb::MountDescription{{{std::string(collection), size}}},
                 Kordb::MountMode::write);
}

void ContainerSm::handleInitialized() {
   if (initialized_) {
      VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(), vrfName_ << " already initialized");
      return;
   }
   doKniInit();
   kernelIntfStatusIs(vrfName_, kernelIntfStatusDir_);
   mountRibTables();
   VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(),
             "ipv4ViaConfig: rp " << static_cast<unsigned>(tables_.ipv4.viaConfig->rp()) << " transport "
                                  << static_cast<unsigned>(tables_.ipv4.viaConfig->transport())
                                  << " vrfId " << tables_.ipv4.viaConfig->vrfId());
   clearState();  // a restarted agent starts from empty tables
   intfBacklog_ = intfBacklogFactory("", vrfName_);
   Vok::ActivityManager* activity = Vok::activityManager();
   if (!activity) {
      throw std::range_error("null ValidPtr");  // ValidPtr holds entities, the manager is not one
   }
   intfBacklogSmIs(vrfName_, vrfId_, activity, ipStatus_, ip6Status_, tables_.ipv4.viaConfig,
                   tables_.ipv4.routeConfig, tables_.ipv4.queryTable, tables_.ipv6.viaConfig,
                   tables_.ipv6.routeConfig, tables_.ipv6.queryTable, tables_.viaSetConfig,
                   intfBacklog_);
   vrfIpIntfStatusSmIs(vrfName_, ipStatus_, intfBacklog_, intfBacklogSm_, kernelIntfStatus_,
                       ivoState_, vrfReadyStatus_);
   vrfIp6IntfStatusSmIs(vrfName_, ip6Status_, intfBacklog_, intfBacklogSm_, kernelIntfStatus_,
                        ivoState_, vrfReadyStatus_);
   initialized_ = true;
}

// The route tables (none under "VrfScaleToggle", which writes the shared
// query tables), then the via tables, IPv4 before IPv6 in each.
void ContainerSm::mountRibTables() {
   if (!vrfScaleToggle().enabled()) {
      for (const Ovel::AddressFamily af : kFamilies) {
         Vok::Ptr<VokPlim::Mount>& mount = mountsOf(af).route;
         mount = mountTable(Rib::routeTablePath(ipVersion(af), vrfId_.value()), Rib::kRouteConfigType,
                            "route", kRouteCollectionSize);
         tables_.of(af).routeConfig = mount->entityAs<Rib::RouteConfig>();
      }
   }
   for (const Ovel::AddressFamily af : kFamilies) {
      Vok::Ptr<VokPlim::Mount>& mount = mountsOf(af).via;
      mount = mountTable(Rib::viaTablePath(ipVersion(af), vrfId_.value()), Rib::kViaConfigType, "via",
                         kViaCollectionSize);
      Rib::Ip::ViaConfig& via = *(tables_.of(af).viaConfig = mount->entityAs<Rib::Ip::ViaConfig>());
      via.transportIs(static_cast<std::uint8_t>(af));  // the family's number: 1 or 2
      via.rpIs(Rib::RoutingProtocol::connected);
      via.vrfIdIs(vrfId_);
   }
}

void ContainerSm::doKniInit() {
   VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(),
             "Mounting kniStatus and initializing KernelIntfStatusManager for vrf : " << vrfName_);
   if (vrfName_.isDefault()) {
      netNs_ = Ovel::NamespaceName::defaultNamespace();
   } else {
      // The root builds no container for a non-default VRF without one.
      auto local = Vok::ValidPtr<const Ip::AllVrfStatusLocal>(allVrfStatusLocal_.get())->vrf(vrfName_);
      netNs_ = Vok::ValidPtr<Ip::VrfStatusLocal>(local)->netNsName();
   }
   auto ownDir = Vok::make<Interface::DeviceIntfStatusDir>();
   kniMount_ = Vok::ValidPtr<const Kordb::EntityManager>(entityManager_.get())
                     ->mount(kniPath(netNs_), "KernelNetInfo::Status", {},
                             Kordb::MountMode::readOnly);
   kniStatus_ = kniMount_->entityAs<KernelNetInfo::Status>();
   // Another VRF of the same namespace may already run its manager: then
   // this VRF shares that manager's directory instead of its own.
   kernelIntfStatusDir_ = Vok::ValidPtr<Interface::NetNsIntfStatusManagerRoot>(intfStatusManagerRoot_)
                                ->intfStatusManagerIs(ownDir, kniStatus_, netNs_);
   usesIntfStatusManager_ = true;
}

void ContainerSm::doKniDelete() {
   VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(),
             "Unmounting kniStatus and deleting KernelIntfStatusManager for vrf : " << vrfName_);
   if (usesIntfStatusManager_) {
      intfStatusManagerRoot_->intfStatusManagerDel(netNs_);
      usesIntfStatusManager_ = false;
   }
   if (kniMount_) {
      kniMount_->unmount();
   }
}

void ContainerSm::clearState() {
   for (const Ovel::AddressFamily af : kFamilies) {
      // A via table is absent only in a container whose build stopped early.
      if (const auto& via = tables_.of(af).viaConfig) {
         via->viaDelAll();
         via->viaMapDelAll();
      }
   }
   for (const Ovel::AddressFamily af : kFamilies) {
      if (vrfScaleToggle().enabled()) {
         tables_.of(af).queryTable->vrfDelAll(vrfId_);
      } else if (const auto& mount = mountsOf(af).route; mount && mount->mounted()) {
         tables_.of(af).routeConfig->routeDelAll();
      }
   }
}

void ContainerSm::doCleanup() {
   VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(), "Cleaning up ContainerSm for vrf " << vrfName_);
   doKniDelete();
   if (!vrfScaleToggle().enabled()) {
      for (const Ovel::AddressFamily af : kFamilies) {
         unmount(mountsOf(af).route);
      }
   }
   if (auto v4 = ipStatus_ && intfBacklogSm_ ? ipStatus_->vrfIpIntfStatus(vrfName_) : nullptr) {
      for (auto it = v4->ipIntfStatus().begin(); it != v4->ipIntfStatus().end(); ++it) {
         intfBacklogSm_->delViaSetKey(it->first, Ovel::AddressFamily::ipv4);
      }
   }
   if (auto v6 = ip6Status_ && intfBacklogSm_ ? ip6Status_->vrfIp6IntfStatus(vrfName_) : nullptr) {
      for (auto it = v6->ip6IntfStatus().begin(); it != v6->ip6IntfStatus().end(); ++it) {
         intfBacklogSm_->delViaSetKey(it->first, Ovel::AddressFamily::ipv6);
      }
   }
   clearState();
   for (const Ovel::AddressFamily af : kFamilies) {
      unmount(mountsOf(af).via);
   }
}

void ContainerSm::hasNotificationActiveIs(bool active) {
   notificationActive_ = active;
   if (vrfIpIntfStatusSm_) {
      vrfIpIntfStatusSm_->hasNotificationActiveIs(active);
   }
   if (vrfIp6IntfStatusSm_) {
      vrfIp6IntfStatusSm_->hasNotificationActiveIs(active);
   }
}

namespace {

void checkSameName(const L3::VrfName& wanted, const L3::VrfName& current) {
   if (wanted != current) {
      throw Vok::ReinstantiationError("vrfName", wanted.str(), current.str());
   }
}

// The checks the two watchers share.
template <class Watcher, class Status>
void checkSameWatcher(const Watcher& w, const L3::VrfName& vrfName, const Status* status,
                      const IntfBacklog* backlog, const IntfBacklogSm* backlogSm,
                      const KernelIntfStatus* kernel, const IvoState* ivo,
                      const VrfReadyStatus* ready) {
   checkSameName(vrfName, w.vrfName());
   Vok::checkSameArgument("ipStatus", status, w.ipStatus().get());
   Vok::checkSameArgument("intfBacklog", backlog, w.intfBacklog().get());
   Vok::checkSameArgument("intfBacklogSm", backlogSm, w.intfBacklogSm().get());
   Vok::checkSameArgument("kernelIntfStatus", kernel, w.kernelIntfStatus().get());
   Vok::checkSameArgument("ivoState", ivo, w.ivoState().get());
   Vok::checkSameArgument("vrfReadyStatus", ready, w.vrfReadyStatus().get());
}

}  // namespace

Vok::Ptr<KernelIntfStatus> ContainerSm::kernelIntfStatusIs(
      const L3::VrfName& vrfName, Vok::Ptr<const Interface::DeviceIntfStatusDir> dir) {
   if (kernelIntfStatus_) {
      checkSameName(vrfName, kernelIntfStatus_->vrfName());
      Vok::checkSameArgument("kernelIntfStatusDir", dir.get(),
                             kernelIntfStatus_->kernelIntfStatusDir().get());
      return kernelIntfStatus_;
   }
   return kernelIntfStatus_ = kernelIntfStatusFactory(vrfName, std::move(dir));
}

Vok::Ptr<IntfBacklogSm> ContainerSm::intfBacklogSmIs(
      const L3::VrfName& vrfName, VrfId vrfId, Vok::ActivityManager* systemClock,
      Vok::Ptr<const Ip::Status> ipStatus, Vok::Ptr<const Ip6::Status> ip6Status,
      Vok::Ptr<Rib::Ip::ViaConfig> ipv4ViaConfig, Vok::Ptr<Rib::RouteConfig> route4Config,
      Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig, Vok::Ptr<Rib::Ip::ViaConfig> ipv6ViaConfig,
      Vok::Ptr<Rib::RouteConfig> route6Config, Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
      Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<IntfBacklog> intfBacklog) {
   if (const auto& sm = intfBacklogSm_) {
      checkSameName(vrfName, sm->vrfName());
      if (vrfId != sm->vrfId()) {
         throw Vok::ReinstantiationError("vrfId", vrfId.toString(), sm->vrfId().toString());
      }
      Vok::checkSameArgument("systemClock", systemClock,
                             sm->backlogClock() ? &sm->backlogClock()->manager() : nullptr);
      Vok::checkSameArgument("ipStatus", ipStatus.get(), sm->ipStatus().get());
      Vok::checkSameArgument("ip6Status", ip6Status.get(), sm->ip6Status().get());
      RibTables{{ipv4ViaConfig, route4Config, route4OrmoConfig},
                {ipv6ViaConfig, route6Config, route6OrmoConfig},
                viaSetConfig}
            .checkSameAs(sm->ribTables());
      Vok::checkSameArgument("intfBacklog", intfBacklog.get(), sm->intfBacklog().get());
      return sm;
   }
   return intfBacklogSm_ = intfBacklogSmFactory(
                vrfName, vrfId, systemClock, std::move(ipStatus), std::move(ip6Status),
                std::move(ipv4ViaConfig), std::move(route4Config), std::move(route4OrmoConfig),
                std::move(ipv6ViaConfig), std::move(route6Config), std::move(route6OrmoConfig),
                std::move(viaSetConfig), std::move(intfBacklog));
}

Vok::Ptr<VrfIpIntfStatusSm> ContainerSm::vrfIpIntfStatusSmIs(
      const L3::VrfName& vrfName, Vok::Ptr<const Ip::Status> ipStatus,
      Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm,
      Vok::Ptr<const KernelIntfStatus> kernelIntfStatus, Vok::Ptr<const IvoState> ivoState,
      Vok::Ptr<VrfReadyStatus> vrfReadyStatus) {
   if (vrfIpIntfStatusSm_) {
      checkSameWatcher(*vrfIpIntfStatusSm_, vrfName, ipStatus.get(), intfBacklog.get(),
                       intfBacklogSm.get(), kernelIntfStatus.get(), ivoState.get(),
                       vrfReadyStatus.get());
      return vrfIpIntfStatusSm_;
   }
   return vrfIpIntfStatusSm_ = Vok::make<VrfIpIntfStatusSm>(
                vrfName, std::move(ipStatus), std::move(intfBacklog), std::move(intfBacklogSm),
                std::move(kernelIntfStatus), std::move(ivoState), std::move(vrfReadyStatus));
}

Vok::Ptr<VrfIp6IntfStatusSm> ContainerSm::vrfIp6IntfStatusSmIs(
      const L3::VrfName& vrfName, Vok::Ptr<const Ip6::Status> ip6Status,
      Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm,
      Vok::Ptr<const KernelIntfStatus> kernelIntfStatus, Vok::Ptr<const IvoState> ivoState,
      Vok::Ptr<VrfReadyStatus> vrfReadyStatus) {
   if (vrfIp6IntfStatusSm_) {
      checkSameWatcher(*vrfIp6IntfStatusSm_, vrfName, ip6Status.get(), intfBacklog.get(),
                       intfBacklogSm.get(), kernelIntfStatus.get(), ivoState.get(),
                       vrfReadyStatus.get());
      return vrfIp6IntfStatusSm_;
   }
   return vrfIp6IntfStatusSm_ = Vok::make<VrfIp6IntfStatusSm>(
                vrfName, std::move(ip6Status), std::move(intfBacklog), std::move(intfBacklogSm),
                std::move(kernelIntfStatus), std::move(ivoState), std::move(vrfReadyStatus));
}

}  // namespace Routing::ConnectedRoute
