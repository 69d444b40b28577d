// Everything of one VRF: the kernel-interface view of its namespace, the
// mounts of its route and via tables, its store, installer and the two
// interface collection watchers. Built completely by the constructor, in
// that order (so every table is mounted and emptied before the installer
// exists); torn down completely by the destructor, leaving no mount, no
// namespace manager and no via set of the VRF's listed interfaces behind.
#pragma once

#include "install/IntfBacklogSm.h"
#include "install/RibTables.h"
#include "platform/interface/IntfDirectories.h"
#include "platform/interface/NetNsIntfStatusManagerRoot.h"
#include "platform/ip/VrfStatusLocal.h"
#include "platform/kordb/EntityManager.h"
#include "platform/vrf/NameToIdMap.h"
#include "tracking/VrfIp6IntfStatusSm.h"
#include "tracking/VrfIpIntfStatusSm.h"

namespace Routing::ConnectedRoute {

class ContainerSm final : public Vok::Entity {
 public:
   using VrfId = Vrf::VrfIdMap::VrfId;

   ContainerSm(Vok::Ptr<const Kordb::EntityManager> entityManager, L3::VrfName vrfName, VrfId vrfId,
               Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<const Ip::Status> ipStatus,
               Vok::Ptr<const Ip6::Status> ip6Status,
               Vok::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper> nameToIdMapWrapper,
               Vok::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
               Vok::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
               Vok::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
               Vok::Ptr<Interface::NetNsIntfStatusManagerRoot> intfStatusManagerRoot,
               Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig,
               Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
               Vok::Ptr<const IvoState> ivoState, Vok::Ptr<VrfReadyStatus> vrfReadyStatus);
   ~ContainerSm() override;

   void handleInitialized();
   void doKniInit();
   void doKniDelete();
   void doCleanup();
   void hasNotificationActiveIs(bool active);

   // Owned children: each is created from its arguments unless it exists;
   // an existing one built from another argument raises
   // Vok::ReinstantiationError naming that argument.
   Vok::Ptr<KernelIntfStatus> kernelIntfStatusIs(
         const L3::VrfName& vrfName, Vok::Ptr<const Interface::DeviceIntfStatusDir> dir);
   Vok::Ptr<IntfBacklogSm> intfBacklogSmIs(
         const L3::VrfName& vrfName, VrfId vrfId, Vok::ActivityManager* systemClock,
         Vok::Ptr<const Ip::Status> ipStatus, Vok::Ptr<const Ip6::Status> ip6Status,
         Vok::Ptr<Rib::Ip::ViaConfig> ipv4ViaConfig, Vok::Ptr<Rib::RouteConfig> route4Config,
         Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig, Vok::Ptr<Rib::Ip::ViaConfig> ipv6ViaConfig,
         Vok::Ptr<Rib::RouteConfig> route6Config, Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
         Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<IntfBacklog> intfBacklog);
   Vok::Ptr<VrfIpIntfStatusSm> vrfIpIntfStatusSmIs(
         const L3::VrfName& vrfName, Vok::Ptr<const Ip::Status> ipStatus,
         Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm,
         Vok::Ptr<const KernelIntfStatus> kernelIntfStatus, Vok::Ptr<const IvoState> ivoState,
         Vok::Ptr<VrfReadyStatus> vrfReadyStatus);
   Vok::Ptr<VrfIp6IntfStatusSm> vrfIp6IntfStatusSmIs(
         const L3::VrfName& vrfName, Vok::Ptr<const Ip6::Status> ip6Status,
         Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm,
         Vok::Ptr<const KernelIntfStatus> kernelIntfStatus, Vok::Ptr<const IvoState> ivoState,
         Vok::Ptr<VrfReadyStatus> vrfReadyStatus);

   // The table paths of a VRF.
   static std::string rib4Path(VrfId vrfId);
   static std::string rib6Path(VrfId vrfId);
   static std::string via4Path(VrfId vrfId);
   static std::string via6Path(VrfId vrfId);
   static std::string kniPath(const Ovel::NamespaceName& netNs);

   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   VrfId vrfId() const noexcept { return vrfId_; }
   const Ovel::NamespaceName& netNs() const noexcept { return netNs_; }
   bool initialized() const noexcept { return initialized_; }
   const Vok::Ptr<Interface::DeviceIntfStatusDir>& kernelIntfStatusDir() const noexcept {
      return kernelIntfStatusDir_;
   }
   const Vok::Ptr<KernelIntfStatus>& kernelIntfStatus() const noexcept { return kernelIntfStatus_; }
   const RibTables& ribTables() const noexcept { return tables_; }
   const Vok::Ptr<Rib::RouteConfig>& route4Config() const noexcept { return tables_.ipv4.routeConfig; }
   const Vok::Ptr<Rib::RouteConfig>& route6Config() const noexcept { return tables_.ipv6.routeConfig; }
   const Vok::Ptr<Rib::Ip::ViaConfig>& ipv4ViaConfig() const noexcept { return tables_.ipv4.viaConfig; }
   const Vok::Ptr<Rib::Ip::ViaConfig>& ipv6ViaConfig() const noexcept { return tables_.ipv6.viaConfig; }
   const Vok::Ptr<IntfBacklog>& intfBacklog() const noexcept { return intfBacklog_; }
   const Vok::Ptr<IntfBacklogSm>& intfBacklogSm() const noexcept { return intfBacklogSm_; }
   const Vok::Ptr<VrfIpIntfStatusSm>& vrfIpIntfStatusSm() const noexcept { return vrfIpIntfStatusSm_; }
   const Vok::Ptr<VrfIp6IntfStatusSm>& vrfIp6IntfStatusSm() const noexcept {
      return vrfIp6IntfStatusSm_;
   }
   const Vok::Ptr<VrfReadyStatus>& vrfReadyStatus() const noexcept { return vrfReadyStatus_; }

 private:
   Vok::Ptr<VokPlim::Mount> mountTable(const std::string& path, std::string_view type,
                                       std::string_view collection, std::size_t size);
   void mountRibTables();
   void clearState();
   // Everything the destructor undoes, in its order; safe on a container
   // whose build stopped half-way.
   void teardown() noexcept;

   // Constructor arguments.
   Vok::Ptr<const Kordb::EntityManager> entityManager_;
   L3::VrfName vrfName_;
   VrfId vrfId_;
   Vok::Ptr<const Ip::Status> ipStatus_;
   Vok::Ptr<const Ip6::Status> ip6Status_;
   Vok::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper> nameToIdMapWrapper_;
   Vok::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal_;
   Vok::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir_;
   Vok::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir_;
   Vok::Ptr<Interface::NetNsIntfStatusManagerRoot> intfStatusManagerRoot_;
   Vok::Ptr<const IvoState> ivoState_;
   Vok::Ptr<VrfReadyStatus> vrfReadyStatus_;

   // What the container builds.
   Ovel::NamespaceName netNs_;
   Vok::Ptr<Interface::DeviceIntfStatusDir> kernelIntfStatusDir_;
   Vok::Ptr<VokPlim::Mount> kniMount_;
   Vok::Ptr<const KernelNetInfo::Status> kniStatus_;
   Vok::Ptr<KernelIntfStatus> kernelIntfStatus_;
   // The VRF's RIB tables: the via sets and query tables it is given, the
   // route and via tables it mounts.
   RibTables tables_;
   struct FamilyMounts {
      Vok::Ptr<VokPlim::Mount> route, via;
   };
   FamilyMounts mounts4_, mounts6_;
   FamilyMounts& mountsOf(Ovel::AddressFamily af) noexcept {
      return af == Ovel::AddressFamily::ipv4 ? mounts4_ : mounts6_;
   }
   Vok::Ptr<IntfBacklog> intfBacklog_;
   Vok::Ptr<IntfBacklogSm> intfBacklogSm_;
   Vok::Ptr<VrfIpIntfStatusSm> vrfIpIntfStatusSm_;
   Vok::Ptr<VrfIp6IntfStatusSm> vrfIp6IntfStatusSm_;
   bool usesIntfStatusManager_ = false;  // holds one use of the namespace's manager
   bool notificationActive_ = true;
   bool initialized_ = false;
};

}  // namespace Routing::ConnectedRoute
