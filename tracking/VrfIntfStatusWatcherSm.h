// The per-VRF watcher of one address family: keeps the family's gate in
// step with the VRF's interface collection (which may come and go
// independently of the VRF), and marks the family's connected routes of the
// VRF ready once the store has drained its backlog after start-up. The flag
// is only ever set, never cleared. VrfIpIntfStatusSm and VrfIp6IntfStatusSm
// are this template with their family's types and texts.
#pragma once

#include <memory>

#include "install/IntfBacklogSm.h"
#include "platform/trace/Zipmark.h"
#include "readiness/ReadinessRecords.h"
#include "tracking/ConnectedRouteTrace.h"
#include "tracking/KernelIntfStatus.h"

namespace Routing::ConnectedRoute {

template <class Family>
class VrfIntfStatusWatcherSm : public Vok::Entity {
 public:
   using Status = typename Family::Status;
   using VrfStatus = typename Family::VrfStatus;
   using Gate = typename Family::Gate;

   VrfIntfStatusWatcherSm(L3::VrfName vrfName, Vok::Ptr<const Status> ipStatus,
                          Vok::Ptr<IntfBacklog> intfBacklog, Vok::Ptr<IntfBacklogSm> intfBacklogSm,
                          Vok::Ptr<const KernelIntfStatus> kernelIntfStatus,
                          Vok::Ptr<const IvoState> ivoState, Vok::Ptr<VrfReadyStatus> vrfReadyStatus)
         : vrfName_(std::move(vrfName)),
           intfBacklog_(intfBacklog),
           intfBacklogSm_(std::move(intfBacklogSm)),
           kernelIntfStatus_(std::move(kernelIntfStatus)),
           vrfReadyStatus_(std::move(vrfReadyStatus)),
           statusReactor_(std::make_unique<StatusReactor>(std::move(ipStatus), *this)),
           backlogReactor_(std::make_unique<BacklogReactor>(std::move(intfBacklog), *this)),
           ivoReactor_(std::make_unique<IvoReactor>(std::move(ivoState), *this)) {
      handleInitialized();
   }

   ~VrfIntfStatusWatcherSm() override {
      statusReactor_->isZombieIs(true);
      backlogReactor_->isZombieIs(true);
      ivoReactor_->isZombieIs(true);
      gate_ = nullptr;  // withdraws every address of the family in this VRF
   }

   void handleInitialized() {
      VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(), "");
      ZIPMARK(1, "handleInitialized", Zipmark::text("vrf=", vrfName_.str()));
      initialized_ = true;
      handleVrfStatus(vrfName_);
      maybeSetRoutesReady();
   }

   void handleVrfStatus(const L3::VrfName& name) {
      if (!initialized_ || name != vrfName_) {
         return;  // other VRFs' entries are not ours
      }
      if (name.empty()) {
         VOK_TRACE(connectedRouteTrace(), 8, vrfName_.str(), "Empty vrfName, expected a valid vrfName");
         return;
      }
      VOK_TRACE(connectedRouteTrace(), 8, vrfName_.str(), "");
      ZIPMARK(1, "handleVrfStatus", Zipmark::text("vrf=", vrfName_.str()));
      Vok::Ptr<VrfStatus> entry = Family::vrfStatus(*statusReactor_->notifier(), name);
      if (!entry) {
         VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(), "Destroying ipIntfStatusSm");
         ZIPMARK(1, "handleVrfStatus", Zipmark::text(Family::kDeletingMark, vrfName_.str()));
         gateDel();
         return;
      }
      VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(), Family::kInstantiatingText);
      ZIPMARK(1, "handleVrfStatus", Zipmark::text(Family::kInitializingMark, vrfName_.str()));
      gateIs(entry, intfBacklog(), intfBacklogSm_, kernelIntfStatus_);
   }

   void maybeSetRoutesReady() {
      if (!initialized_) {
         return;
      }
      const IvoState& ivo = *Vok::ValidPtr<const IvoState>(ivoReactor_->notifier());
      if (ivo.startupMode() == Agent::StartupMode::hitlessRestart && !ivo.startReadyVerification()) {
         VOK_TRACE(connectedRouteTrace(), 8, vrfName_.str(),
                   Family::kWaitingForVerificationText << vrfName_);
         return;
      }
      const IntfBacklog& store = *Vok::ValidPtr<IntfBacklog>(intfBacklog());
      if ((gate_ && !gate_->initialized()) || !store.backlog().empty()) {
         VOK_TRACE(connectedRouteTrace(), 8, vrfName_.str(), Family::kWaitingForBacklogText << vrfName_);
         ZIPMARK(1, "maybeSetRoutesReady", Zipmark::text(Family::kWaitingForBacklogText, vrfName_.str()));
         return;
      }
      VOK_TRACE(connectedRouteTrace(), 7, vrfName_.str(),
                "Backlog empty count : " << store.backlogEmpty());
      if (Family::ready(*vrfReadyStatus_)) {
         return;
      }
      VOK_TRACE(connectedRouteTrace(), 0, vrfName_.str(), Family::kSettingReadyText << vrfName_);
      Family::readyIs(*vrfReadyStatus_);
   }

   // The gate for `vrfStatus`, created unless the gate of that very
   // collection exists; a replaced collection gets a new gate.
   Vok::Ptr<Gate> gateIs(Vok::Ptr<const VrfStatus> vrfStatus, Vok::Ptr<IntfBacklog> backlog,
                         Vok::Ptr<IntfBacklogSm> backlogSm,
                         Vok::Ptr<const KernelIntfStatus> kernelIntfStatus) {
      if (gate_ && gate_->vrfStatus() == vrfStatus && gate_->intfBacklog() == backlog &&
          gate_->intfBacklogSm() == backlogSm && gate_->kernelIntfStatus() == kernelIntfStatus) {
         return gate_;
      }
      gate_ = nullptr;  // the old collection's addresses go before the new ones come
      gate_ = Vok::make<Gate>(std::move(vrfStatus), std::move(backlog), std::move(backlogSm),
                              std::move(kernelIntfStatus));
      gate_->hasNotificationActiveIs(notificationActive_);
      return gate_;
   }
   void gateDel() { gate_ = nullptr; }
   const Vok::Ptr<Gate>& gate() const noexcept { return gate_; }

   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   const Vok::Ptr<const Status>& ipStatus() const noexcept { return statusReactor_->notifier(); }
   const Vok::Ptr<IntfBacklog>& intfBacklog() const noexcept { return intfBacklog_; }
   void intfBacklogIs(Vok::Ptr<IntfBacklog> backlog) {
      intfBacklog_ = backlog;
      backlogReactor_->notifierIs(std::move(backlog));
   }
   void intfBacklogDel() { intfBacklogIs(nullptr); }
   const Vok::Ptr<IntfBacklogSm>& intfBacklogSm() const noexcept { return intfBacklogSm_; }
   const Vok::Ptr<const KernelIntfStatus>& kernelIntfStatus() const noexcept {
      return kernelIntfStatus_;
   }
   const Vok::Ptr<const IvoState>& ivoState() const noexcept { return ivoReactor_->notifier(); }
   void ivoStateIs(Vok::Ptr<const IvoState> ivo) { ivoReactor_->notifierIs(std::move(ivo)); }
   const Vok::Ptr<VrfReadyStatus>& vrfReadyStatus() const noexcept { return vrfReadyStatus_; }
   bool initialized() const noexcept { return initialized_; }

   void hasNotificationActiveIs(bool active) {
      notificationActive_ = active;
      statusReactor_->hasNotificationActiveIs(active);
      backlogReactor_->hasNotificationActiveIs(active);
      ivoReactor_->hasNotificationActiveIs(active);
      if (gate_) {
         gate_->hasNotificationActiveIs(active);
      }
   }

 private:
   class StatusReactor final : public Family::template StatusReactor<VrfIntfStatusWatcherSm> {
    public:
      using Family::template StatusReactor<VrfIntfStatusWatcherSm>::StatusReactor;
   };

   class BacklogReactor final : public Vok::Reactor<IntfBacklog> {
    public:
      BacklogReactor(Vok::Ptr<const IntfBacklog> backlog, VrfIntfStatusWatcherSm& owner)
            : Vok::Reactor<IntfBacklog>(std::move(backlog)), owner_(owner) {}
      void onBacklogEmpty() override { owner_.maybeSetRoutesReady(); }

    private:
      VrfIntfStatusWatcherSm& owner_;
   };

   class IvoReactor final : public Vok::Reactor<IvoState> {
    public:
      IvoReactor(Vok::Ptr<const IvoState> ivo, VrfIntfStatusWatcherSm& owner)
            : Vok::Reactor<IvoState>(std::move(ivo)), owner_(owner) {}
      void onStartReadyVerification() override { owner_.maybeSetRoutesReady(); }

    private:
      VrfIntfStatusWatcherSm& owner_;
   };

   L3::VrfName vrfName_;
   Vok::Ptr<IntfBacklog> intfBacklog_;  // also watched, through backlogReactor_
   Vok::Ptr<IntfBacklogSm> intfBacklogSm_;
   Vok::Ptr<const KernelIntfStatus> kernelIntfStatus_;
   Vok::Ptr<VrfReadyStatus> vrfReadyStatus_;
   std::unique_ptr<StatusReactor> statusReactor_;
   std::unique_ptr<BacklogReactor> backlogReactor_;
   std::unique_ptr<IvoReactor> ivoReactor_;
   Vok::Ptr<Gate> gate_;
   bool notificationActive_ = true;
   bool initialized_ = false;
};

}  // namespace Routing::ConnectedRoute
