#include "readiness/AllVrfRibReadySm.h"

#include <vector>

#include "platform/rib/TablePaths.h"
#include "platform/trace/Trace.h"
#include "platform/vok/ActivityManager.h"

namespace Routing::ConnectedRoute {

namespace {

const Vok::TraceHandle& trace() {
   static const Vok::TraceHandle handle("ConnectedRouteRibReadySm");
   return handle;
}

constexpr std::string_view kProtoVrfStatusType = Routing::Rib::kProtoVrfStatusType;

}  // namespace

class AllVrfRibReadySm::VokAllVrfRibReady final : public Vok::Reactor<Rib::AllVrfRibReady> {
 public:
   VokAllVrfRibReady(Vok::Ptr<const Rib::AllVrfRibReady> ready, AllVrfRibReadySm& owner)
         : Vok::Reactor<Rib::AllVrfRibReady>(std::move(ready)), owner_(owner) {}
   void onVrfRibReady(const L3::VrfName& vrfName) override { owner_.handleVrfRibReady(vrfName); }

 private:
   AllVrfRibReadySm& owner_;
};

class AllVrfRibReadySm::VokAllVrfReadyStatus final : public Vok::Reactor<AllVrfReadyStatus> {
 public:
   VokAllVrfReadyStatus(Vok::Ptr<const AllVrfReadyStatus> all, AllVrfRibReadySm& owner)
         : Vok::Reactor<AllVrfReadyStatus>(std::move(all)), owner_(owner) {}
   void onVrfReadyStatus(const L3::VrfName& vrfName) override {
      owner_.handleVrfReadyStatus(vrfName);
   }

 private:
   AllVrfRibReadySm& owner_;
};

class AllVrfRibReadySm::VokVrfReadyStatus final : public Vok::Reactor<VrfReadyStatus> {
 public:
   VokVrfReadyStatus(Vok::Ptr<const VrfReadyStatus> record, AllVrfRibReadySm& owner)
         : Vok::Reactor<VrfReadyStatus>(std::move(record)), owner_(owner) {}
   void onV4ConnectedRoutesReady() override { owner_.maybeSignalVrfReady(notifier()->vrfName()); }
   void onV6ConnectedRoutesReady() override { owner_.maybeSignalVrfReady(notifier()->vrfName()); }

 private:
   AllVrfRibReadySm& owner_;
};

AllVrfRibReadySm::AllVrfRibReadySm(Vok::Ptr<const Rib::AllVrfRibReady> allVrfRibReady,
                                   Vok::Ptr<const AllVrfReadyStatus> allVrfReadyStatus,
                                   Vok::Ptr<Vok::Dir> dir)
      : allVrfRibReady_(Vok::ValidPtr<const Rib::AllVrfRibReady>(allVrfRibReady.get())),
        allVrfReadyStatus_(Vok::ValidPtr<const AllVrfReadyStatus>(allVrfReadyStatus.get())),
        dir_(Vok::ValidPtr<Vok::Dir>(dir.get())) {
   ribReadyReactor_ = std::make_unique<VokAllVrfRibReady>(allVrfRibReady_, *this);
   readyStatusReactor_ = std::make_unique<VokAllVrfReadyStatus>(allVrfReadyStatus_, *this);
   handleInitialized();
   for (const auto& [vrfName, record] : allVrfReadyStatus_->vrfReadyStatus()) {
      handleVrfReadyStatus(vrfName);
   }
}

AllVrfRibReadySm::~AllVrfRibReadySm() {
   ribReadyReactor_->isZombieIs(true);
   readyStatusReactor_->isZombieIs(true);
}

void AllVrfRibReadySm::handleInitialized() {
   VOK_TRACE(trace(), 0, "", "Initializing AllVrfRibReadySm");
   for (const L3::VrfName& vrfName : allVrfRibReady_->vrfRibReady()) {
      VOK_TRACE(trace(), 0, vrfName.str(), "Adding protoVrfStatus entity for vrf: " << vrfName);
      protoVrfStatusIs(vrfName);
   }
   std::vector<std::string> stale;
   dir_->forEachName([&](const std::string& name) {
      if (!allVrfRibReady_->vrfRibReady(L3::VrfName(name))) {
         stale.push_back(name);
      }
   });
   for (const std::string& name : stale) {
      VOK_TRACE(trace(), 0, name, "Deleting protoVrfStatus entity for vrf: " << name);
      dir_->entityDel(name);
   }
   initialized_ = true;
}

Vok::Ptr<Rib::ProtoVrfStatus> AllVrfRibReadySm::protoVrfStatusIs(const L3::VrfName& vrfName) {
   return dir_->entityIs<Rib::ProtoVrfStatus>(vrfName.str(), kProtoVrfStatusType);
}

void AllVrfRibReadySm::handleVrfRibReady(const L3::VrfName& vrfName) {
   if (allVrfRibReady_->vrfRibReady(vrfName)) {
      VOK_TRACE(trace(), 0, vrfName.str(),
                "handleVrfRibReady" << ": Adding protoVrfStatus entity for vrf: " << vrfName);
      maybeSignalVrfReady(vrfName);
   } else {
      VOK_TRACE(trace(), 0, vrfName.str(),
                "handleVrfRibReady" << ": Deleting protoVrfStatus entity for vrf: " << vrfName);
      dir_->entityDel(vrfName.str());
   }
}

void AllVrfRibReadySm::handleVrfReadyStatus(const L3::VrfName& vrfName) {
   Vok::Ptr<VrfReadyStatus> record = allVrfReadyStatus_->vrfReadyStatus(vrfName);
   if (!record) {
      recordReactors_.erase(vrfName);  // the protocol entity stays as it is
      return;
   }
   auto& reactor = recordReactors_[vrfName];
   if (reactor && reactor->notifier() == record) {
      return;
   }
   reactor = std::make_unique<VokVrfReadyStatus>(record, *this);
   reactor->hasNotificationActiveIs(notificationActive_);
   VOK_TRACE(trace(), 7, vrfName.str(), "VrfReadyStatus created for vrf: " << vrfName);
   maybeSignalVrfReady(vrfName);
}

bool AllVrfRibReadySm::vrfConnectedRoutesReady(const L3::VrfName& vrfName) const {
   Vok::Ptr<VrfReadyStatus> record = allVrfReadyStatus_->vrfReadyStatus(vrfName);
   if (record && record->v4ConnectedRoutesReady() && record->v6ConnectedRoutesReady()) {
      return true;
   }
   VOK_TRACE(trace(), 8, vrfName.str(),
             "vrfConnectedRoutesReady" << ": ConnectedRoute not yet ready in vrf : " << vrfName);
   return false;
}

void AllVrfRibReadySm::maybeSignalVrfReady(const L3::VrfName& vrfName) {
   if (!allVrfRibReady_->vrfRibReady(vrfName)) {
      return;
   }
   Vok::Ptr<Rib::ProtoVrfStatus> status = protoVrfStatusIs(vrfName);
   if (!vrfConnectedRoutesReady(vrfName)) {
      return;
   }
   if (status->readyTime() != 0.0) {
      return;  // marked before: never marked twice
   }
   VOK_TRACE(trace(), 0, vrfName.str(),
             "maybeSignalVrfReady" << ": Marking ConnectedRoute ready in vrf : " << vrfName);
   status->readyTimeIs(Vok::now());
   status->readyIs(true);
}

void AllVrfRibReadySm::hasNotificationActiveIs(bool active) {
   notificationActive_ = active;
   ribReadyReactor_->hasNotificationActiveIs(active);
   readyStatusReactor_->hasNotificationActiveIs(active);
   for (auto& [vrfName, reactor] : recordReactors_) {
      reactor->hasNotificationActiveIs(active);
   }
}

}  // namespace Routing::ConnectedRoute
