// The engine's entry: decides, VRF by VRF, whether a ContainerSm must exist
// and makes it so, keeps one readiness record per live container, and owns
// the readiness machine, the namespace manager root and the fast-trace file.
//
// A VRF is served when the RIB's name-to-id map gives it a valid identifier
// and it is either "default" or locally active. The decision is re-taken
// whenever an input of it changes: a map entry, the map itself, a VRF's
// local state. Removing a VRF's local status deletes its container at once.
//
// Identifiers come from another agent's map, which may (briefly or by
// mistake) give two names one identifier. Only one VRF is served per
// identifier: the one whose container exists keeps it; the other is traced
// and served once the identifier is free again.
#pragma once

#include <map>
#include <memory>
#include <set>

#include "lifecycle/ContainerSm.h"
#include "lifecycle/VrfNameSet.h"
#include "readiness/AllVrfRibReadySm.h"

namespace Routing::ConnectedRoute {

class RootSm final : public Vok::Entity {
 public:
   RootSm(Vok::Ptr<const Kordb::EntityManager> entityManager,
          Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<const Ip::Status> ipStatus,
          Vok::Ptr<const Ip6::Status> ip6Status,
          Vok::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> nameToIdMapWrapper,
          Vok::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
          Vok::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
          Vok::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
          Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig,
          Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
          Vok::Ptr<const Rib::AllVrfRibReady> allVrfRibReady, Vok::Ptr<Vok::Dir> dir,
          Vok::Ptr<const IvoState> ivoState);
   ~RootSm() override;

   void handleInitialized();
   void handleRibVrfNameToIdMap();
   void doCreateOrDeleteContainer(const L3::VrfName& name);
   void doDeleteContainer(L3::VrfName vrfName);
   void doDeleteContainer();
   void handleDelete() { doDeleteContainer(); }
   void hasNotificationActiveIs(bool active);
   void vokDoZombieReactors(bool zombie);

   // The VRF's container, created unless it exists. Its other arguments are
   // the root's own, so only the VRF's identifier and readiness record can
   // differ from an existing container's: either raises
   // Vok::ReinstantiationError.
   Vok::Ptr<ContainerSm> containerSmIs(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                                       Vok::Ptr<VrfReadyStatus> vrfReadyStatus);

   bool initialized() const noexcept { return initialized_; }
   const std::map<L3::VrfName, Vok::Ptr<ContainerSm>>& containerSm() const noexcept {
      return containers_;
   }
   Vok::Ptr<ContainerSm> containerSm(const L3::VrfName& vrfName) const;
   bool vrfStatusLocalSm(const L3::VrfName& vrfName) const { return watchers_.contains(vrfName); }
   // Watches one VRF's local status (once per VRF); a null status is refused.
   void vrfStatusLocalIs(const Vok::Ptr<Ip::VrfStatusLocal>& status);
   const Vok::Ptr<AllVrfReadyStatus>& allVrfReadyStatus() const noexcept { return allVrfReadyStatus_; }
   const Vok::Ptr<AllVrfRibReadySm>& allVrfRibReadySm() const noexcept { return allVrfRibReadySm_; }
   const Vok::Ptr<Interface::NetNsIntfStatusManagerRoot>& intfStatusManagerRoot() const noexcept {
      return intfStatusManagerRoot_;
   }

 private:
   class VokNameToIdMapWrapper;
   class VokNameToIdMap;
   class VokAllVrfStatusLocal;
   class VrfStatusLocalSm;

   void handleVrfStatusLocal(const L3::VrfName& vrfName);
   // Everything the destructor undoes, in its order; safe on a root whose
   // construction stopped half-way.
   void teardown() noexcept;
   // The VRF whose container was built with this identifier, if any.
   const L3::VrfName* vrfIdHolder(Vrf::VrfIdMap::VrfId vrfId) const;
   // Re-decides the VRFs that were refused because a container held their
   // identifier; run whenever a container goes.
   void serveVrfsWaitingForTheirId();
   std::string describe() const { return "root"; }

   Vok::Ptr<const Kordb::EntityManager> entityManager_;
   Vok::Ptr<Rib::ViaSetConfig> viaSetConfig_;
   Vok::Ptr<const Ip::Status> ipStatus_;
   Vok::Ptr<const Ip6::Status> ip6Status_;
   Vok::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> nameToIdMapWrapper_;
   Vok::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal_;
   Vok::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir_;
   Vok::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir_;
   Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig_;
   Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig_;
   Vok::Ptr<const Rib::AllVrfRibReady> allVrfRibReady_;
   Vok::Ptr<Vok::Dir> dir_;
   Vok::Ptr<const IvoState> ivoState_;

   std::unique_ptr<VokNameToIdMapWrapper> wrapperReactor_;
   std::unique_ptr<VokNameToIdMap> mapReactor_;
   std::unique_ptr<VokAllVrfStatusLocal> localReactor_;
   std::map<L3::VrfName, std::unique_ptr<VrfStatusLocalSm>> watchers_;
   std::map<L3::VrfName, Vok::Ptr<ContainerSm>> containers_;
   Vok::Ptr<AllVrfReadyStatus> allVrfReadyStatus_;
   Vok::Ptr<AllVrfRibReadySm> allVrfRibReadySm_;
   Vok::Ptr<Interface::NetNsIntfStatusManagerRoot> intfStatusManagerRoot_;
   std::set<L3::VrfName> waitingForVrfId_;
   bool notificationActive_ = true;
   bool zombie_ = false;
   bool deletingAll_ = false;
   bool initialized_ = false;
};

}  // namespace Routing::ConnectedRoute
