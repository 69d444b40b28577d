#include "lifecycle/RootSm.h"

#include <cstdlib>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "platform/trace/Zipmark.h"
#include "tracking/ConnectedRouteTrace.h"

namespace Routing::ConnectedRoute {

class RootSm::VokNameToIdMap final : public Vok::Reactor<Vrf::VrfIdMap::NameToIdMap> {
 public:
   VokNameToIdMap(Vok::Ptr<const Vrf::VrfIdMap::NameToIdMap> map, RootSm& root)
         : Vok::Reactor<Vrf::VrfIdMap::NameToIdMap>(std::move(map)), root_(root) {}
   void onVrfNameToId(const L3::VrfName& name) override { root_.doCreateOrDeleteContainer(name); }

 private:
   RootSm& root_;
};

class RootSm::VokNameToIdMapWrapper final : public Vok::Reactor<Vrf::VrfIdMap::NameToIdMapWrapper> {
 public:
   VokNameToIdMapWrapper(Vok::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper> wrapper, RootSm& root)
         : Vok::Reactor<Vrf::VrfIdMap::NameToIdMapWrapper>(std::move(wrapper)), root_(root) {}
   void onNameToIdMap() override {
      root_.handleRibVrfNameToIdMap();
      root_.mapReactor_->notifierIs(notifier()->nameToIdMap());
   }

 private:
   RootSm& root_;
};

class RootSm::VokAllVrfStatusLocal final : public Vok::Reactor<Ip::AllVrfStatusLocal> {
 public:
   VokAllVrfStatusLocal(Vok::Ptr<const Ip::AllVrfStatusLocal> all, RootSm& root)
         : Vok::Reactor<Ip::AllVrfStatusLocal>(std::move(all)), root_(root) {}
   void onVrf(const L3::VrfName& name) override { root_.handleVrfStatusLocal(name); }

 private:
   RootSm& root_;
};

// Watches one VRF's local status. Its end (deletion, or becoming a zombie)
// deletes the VRF's container at once, without consulting the map.
class RootSm::VrfStatusLocalSm final : public Vok::Reactor<Ip::VrfStatusLocal> {
 public:
   VrfStatusLocalSm(Vok::Ptr<const Ip::VrfStatusLocal> status, L3::VrfName vrfName, RootSm& root)
         : Vok::Reactor<Ip::VrfStatusLocal>(std::move(status)),
           vrfName_(std::move(vrfName)),
           root_(&root) {
      root_->doCreateOrDeleteContainer(vrfName_);
   }
   ~VrfStatusLocalSm() override {
      if (!isZombie()) {
         onZombie();  // once: becoming a zombie already deleted the container
      }
   }

   void onState() override { root_->doCreateOrDeleteContainer(vrfName_); }
   void onZombie() override {
      if (root_) {
         root_->doDeleteContainer(vrfName_);
      }
   }
   // Detaches the watcher from a root that is going away.
   void rootDel() { root_ = nullptr; }

 private:
   L3::VrfName vrfName_;
   RootSm* root_;
};

RootSm::RootSm(Vok::Ptr<const Kordb::EntityManager> entityManager,
               Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<const Ip::Status> ipStatus,
               Vok::Ptr<const Ip6::Status> ip6Status,
               Vok::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> nameToIdMapWrapper,
               Vok::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
               Vok::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
               Vok::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
               Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig,
               Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
               Vok::Ptr<const Rib::AllVrfRibReady> allVrfRibReady, Vok::Ptr<Vok::Dir> dir,
               Vok::Ptr<const IvoState> ivoState)
      : entityManager_(std::move(entityManager)),
        viaSetConfig_(std::move(viaSetConfig)),
        ipStatus_(std::move(ipStatus)),
        ip6Status_(std::move(ip6Status)),
        nameToIdMapWrapper_(std::move(nameToIdMapWrapper)),
        allVrfStatusLocal_(std::move(allVrfStatusLocal)),
        allIntfStatusDir_(std::move(allIntfStatusDir)),
        allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)),
        route4OrmoConfig_(std::move(route4OrmoConfig)),
        route6OrmoConfig_(std::move(route6OrmoConfig)),
        allVrfRibReady_(std::move(allVrfRibReady)),
        dir_(std::move(dir)),
        ivoState_(std::move(ivoState)) {
   const ConstructionReference referenced(*this);
   try {
      Vok::ValidPtr<Vrf::VrfIdMap::NameToIdMapWrapper> wrapper(nameToIdMapWrapper_);
      Vok::ValidPtr<const Ip::AllVrfStatusLocal> local(allVrfStatusLocal_.get());
      wrapperReactor_ = std::make_unique<VokNameToIdMapWrapper>(nameToIdMapWrapper_, *this);
      localReactor_ = std::make_unique<VokAllVrfStatusLocal>(allVrfStatusLocal_, *this);
      mapReactor_ = std::make_unique<VokNameToIdMap>(nullptr, *this);
      for (const auto& [name, status] : allVrfStatusLocal_->vrf()) {
         handleVrfStatusLocal(name);
      }
      handleInitialized();
      mapReactor_->notifierIs(nameToIdMapWrapper_->nameToIdMap());
   } catch (...) {
      // The destructor will not run, and members would go in reverse
      // declaration order, containers before the watchers whose end
      // deletes them: tear down in the destructor's order instead.
      teardown();
      throw;
   }
}

RootSm::~RootSm() { teardown(); }

void RootSm::teardown() noexcept {
   for (auto* reactor : {static_cast<Vok::ReactorBase*>(wrapperReactor_.get()),
                         static_cast<Vok::ReactorBase*>(mapReactor_.get()),
                         static_cast<Vok::ReactorBase*>(localReactor_.get())}) {
      if (reactor) {
         reactor->isZombieIs(true);
      }
   }
   for (auto& [name, watcher] : watchers_) {
      watcher->rootDel();
   }
   watchers_.clear();
   intfStatusManagerRoot_ = nullptr;
   allVrfReadyStatus_ = nullptr;
   allVrfRibReadySm_ = nullptr;
   containers_.clear();
}

void RootSm::handleInitialized() {
   const char* zmFile = std::getenv("ZMFILE");
   Zipmark::initialize(Zipmark::Config{
         .nameFormat = zmFile && *zmFile ? zmFile : "ConnectedRoute-%d.zm",
         .minLevel = 0,
         .maxSizeLog2 = 24,
         .threadMode = 0});
   if (initialized_) {
      return;
   }
   // No via set of an earlier run survives it.
   Vok::ValidPtr<Rib::ViaSetConfig>(viaSetConfig_)->viaSetDelAll();
   allVrfReadyStatus_ = Vok::make<AllVrfReadyStatus>();
   allVrfRibReadySm_ = Vok::make<AllVrfRibReadySm>(allVrfRibReady_, allVrfReadyStatus_, dir_);
   intfStatusManagerRoot_ = Vok::make<Interface::NetNsIntfStatusManagerRoot>(
         allIntfStatusDir_, allIntfStatusLocalDir_, /*filterByNetNs=*/true);
   VOK_TRACE(connectedRouteTrace(), 0, describe(), "handleInitialized");
   initialized_ = true;
   handleRibVrfNameToIdMap();
}

void RootSm::handleRibVrfNameToIdMap() {
   const Vok::Ptr<Vrf::VrfIdMap::NameToIdMap>& map = nameToIdMapWrapper_->nameToIdMap();
   if (!map) {
      ZIPMARK(1, "handleRibVrfNameToIdMap", Zipmark::text(" nameToIdMap() not defined", ""));
      return;
   }
   std::vector<L3::VrfName> names;
   for (const auto& [name, id] : map->vrfNameToId()) {
      names.push_back(name);
   }
   for (const L3::VrfName& name : names) {
      doCreateOrDeleteContainer(name);
   }
}

void RootSm::handleVrfStatusLocal(const L3::VrfName& vrfName) {
   Vok::Ptr<Ip::VrfStatusLocal> status = allVrfStatusLocal_->vrf(vrfName);
   if (!status) {
      watchers_.erase(vrfName);  // the watcher's end deletes the container
      return;
   }
   vrfStatusLocalIs(status);
}

void RootSm::vrfStatusLocalIs(const Vok::Ptr<Ip::VrfStatusLocal>& status) {
   if (!status) {
      throw std::range_error(Vok::nullMutatorParameterText(
            "vrfStatusLocal", "Routing::ConnectedRoute::RootSm::vrfStatusLocal"));
   }
   if (!watchers_.contains(status->vrfName())) {
      auto watcher = std::make_unique<VrfStatusLocalSm>(status, status->vrfName(), *this);
      watcher->hasNotificationActiveIs(notificationActive_);
      watchers_.emplace(status->vrfName(), std::move(watcher));
   }
}

Vok::Ptr<ContainerSm> RootSm::containerSm(const L3::VrfName& vrfName) const {
   auto it = containers_.find(vrfName);
   return it == containers_.end() ? nullptr : it->second;
}

void RootSm::doCreateOrDeleteContainer(const L3::VrfName& name) {
   if (!initialized_) {
      VOK_TRACE(connectedRouteTrace(), 8, describe(), "init not complete VRF " << name);
      return;
   }
   std::optional<Vrf::VrfIdMap::VrfId> id;
   if (const auto& map = nameToIdMapWrapper_->nameToIdMap()) {
      id = map->vrfNameToId(name);
   }
   bool wanted = false;
   if (!id || !id->isValid()) {
      VOK_TRACE(connectedRouteTrace(), 8, describe(),
                "VRF name to ID map has been deleted for VRF " << name);
   } else if (name.isDefault()) {
      wanted = true;  // the default VRF needs no local status
   } else if (auto local = allVrfStatusLocal_->vrf(name); !local) {
      VOK_TRACE(connectedRouteTrace(), 8, describe(), "allVrfStatusLocal missing for VRF " << name);
   } else if (local->state() != Ip::VrfState::active) {
      VOK_TRACE(connectedRouteTrace(), 8, describe(),
                "allVrfStatusLocal not active for VRF " << name << " state "
                                                        << static_cast<int>(local->state()));
   } else {
      VOK_TRACE(connectedRouteTrace(), 8, describe(), "All conditions met to create VRF " << name);
      wanted = true;
   }
   const bool exists = containers_.contains(name);
   if (wanted && !exists) {
      if (const L3::VrfName* holder = vrfIdHolder(*id)) {
         // Two served VRFs with one identifier would share (and clear) each
         // other's tables: the first keeps them, this one waits its turn.
         VOK_TRACE(connectedRouteTrace(), 0, describe(),
                   "VRF id " << id->value() << " already used by VRF " << *holder
                             << ", not serving VRF " << name << " while it is");
         waitingForVrfId_.insert(name);
         wanted = false;
      }
   }
   if (wanted == exists) {
      // A changed identifier alone does not rebuild the container.
      VOK_TRACE(connectedRouteTrace(), 8, describe(),
                "no change, containerSm " << (exists ? "exists" : "do not exist") << " for VRF "
                                          << name);
      return;
   }
   if (!wanted) {
      doDeleteContainer(name);
      return;
   }
   VOK_ASSERT(references() != 0, "references() != 0");
   VOK_TRACE(connectedRouteTrace(), 0, describe(), "adding containerSm VRF " << name);
   ZIPMARK(1, "doCreateOrDeleteContainer", Zipmark::text("vrf=", name.str()),
           Zipmark::integer(" adding containerSm. vrfId=", id->value()));
   Vok::Ptr<VrfReadyStatus> record = allVrfReadyStatus_->vrfReadyStatusIs(name);
   try {
      containerSmIs(name, *id, record);
   } catch (...) {
      allVrfReadyStatus_->vrfReadyStatusDel(name);  // no record without its container
      throw;
   }
}

Vok::Ptr<ContainerSm> RootSm::containerSmIs(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                                            Vok::Ptr<VrfReadyStatus> vrfReadyStatus) {
   if (Vok::Ptr<ContainerSm> existing = containerSm(vrfName)) {
      if (existing->vrfId() != vrfId) {
         throw Vok::ReinstantiationError("vrfId", vrfId.toString(), existing->vrfId().toString());
      }
      Vok::checkSameArgument("vrfReadyStatus", vrfReadyStatus.get(),
                             existing->vrfReadyStatus().get());
      return existing;
   }
   auto container = Vok::make<ContainerSm>(
         entityManager_, vrfName, vrfId, viaSetConfig_, ipStatus_, ip6Status_, nameToIdMapWrapper_,
         allVrfStatusLocal_, allIntfStatusDir_, allIntfStatusLocalDir_, intfStatusManagerRoot_,
         route4OrmoConfig_, route6OrmoConfig_, ivoState_, std::move(vrfReadyStatus));
   container->hasNotificationActiveIs(notificationActive_);
   containers_.emplace(vrfName, container);
   return container;
}

void RootSm::doDeleteContainer(L3::VrfName vrfName) {
   VOK_TRACE(connectedRouteTrace(), 0, describe(), "deleting containerSm VRF " << vrfName);
   if (allVrfReadyStatus_) {
      allVrfReadyStatus_->vrfReadyStatusDel(vrfName);  // before the container goes
   }
   auto it = containers_.find(vrfName);
   if (it == containers_.end()) {
      return;
   }
   Vok::Ptr<ContainerSm> container = std::move(it->second);
   containers_.erase(it);
   VOK_ASSERT(container->references() == 1, "container->references() == 1");
   container = nullptr;  // its destructor tears the VRF down
   if (!zombie_ && !deletingAll_) {
      serveVrfsWaitingForTheirId();
   }
}

const L3::VrfName* RootSm::vrfIdHolder(Vrf::VrfIdMap::VrfId vrfId) const {
   for (const auto& [name, container] : containers_) {
      if (container->vrfId() == vrfId) {
         return &name;
      }
   }
   return nullptr;
}

void RootSm::serveVrfsWaitingForTheirId() {
   std::set<L3::VrfName> waiting;
   waiting.swap(waitingForVrfId_);
   for (const L3::VrfName& name : waiting) {
      // A deletion must not fail (it runs from destructors too): a VRF that
      // cannot be built now is traced and waits for the next chance.
      try {
         doCreateOrDeleteContainer(name);  // waits again if its identifier is still taken
      } catch (const std::exception& e) {
         VOK_TRACE(connectedRouteTrace(), 0, describe(),
                   "cannot serve VRF " << name << " yet: " << e.what());
         waitingForVrfId_.insert(name);
      }
   }
}

void RootSm::doDeleteContainer() {
   VOK_TRACE(connectedRouteTrace(), 0, describe(), "deleting all VRF containerSms");
   VrfNameSet names;
   for (const auto& [name, container] : containers_) {
      names.vrfNameIs(name);
   }
   deletingAll_ = true;
   for (const L3::VrfName& name : names.vrfName()) {
      doDeleteContainer(name);
   }
   deletingAll_ = false;
   waitingForVrfId_.clear();
}

void RootSm::hasNotificationActiveIs(bool active) {
   notificationActive_ = active;
   wrapperReactor_->hasNotificationActiveIs(active);
   mapReactor_->hasNotificationActiveIs(active);
   localReactor_->hasNotificationActiveIs(active);
   for (auto& [name, watcher] : watchers_) {
      watcher->hasNotificationActiveIs(active);
   }
   for (auto& [name, container] : containers_) {
      container->hasNotificationActiveIs(active);
   }
   if (allVrfRibReadySm_) {
      allVrfRibReadySm_->hasNotificationActiveIs(active);
   }
   if (intfStatusManagerRoot_) {
      intfStatusManagerRoot_->hasNotificationActiveIs(active);
   }
}

void RootSm::vokDoZombieReactors(bool zombie) {
   if (zombie == zombie_) {
      return;
   }
   zombie_ = zombie;
   mapReactor_->isZombieIs(zombie);
   localReactor_->isZombieIs(zombie);
   for (auto& [name, watcher] : watchers_) {
      watcher->isZombieIs(zombie);  // a zombie watcher deletes its VRF's container
   }
}

}  // namespace Routing::ConnectedRoute
