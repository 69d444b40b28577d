// The gate of one VRF and one address family: keeps exactly one address
// machine for each interface whose IP status exists in the VRF's collection
// and whose kernel device is present, and none for any other.
//
// Both facts are watched (the VRF's interface collection and the kernel
// directory), and either change re-evaluates just that interface. A machine
// is created when both hold and destroyed, withdrawing all its addresses,
// when either stops holding. The IPv4 and IPv6 gates (IpIntfStatusSm,
// Ip6IntfStatusSm) are this template with their family's types and texts.
#pragma once

#include <memory>
#include <string>

#include "install/IntfBacklogSm.h"
#include "platform/trace/Zipmark.h"
#include "platform/vok/Errors.h"
#include "tracking/ConnectedRouteTrace.h"
#include "tracking/KernelIntfStatus.h"

namespace Routing::ConnectedRoute {

template <class Family>
class IntfStatusGateSm : public Vok::Entity {
 public:
   using VrfStatus = typename Family::VrfStatus;
   using IntfStatus = typename Family::IntfStatus;
   using Machine = typename Family::Machine;
   using Machines = Vok::HashMap<Ovel::IntfId, Vok::Ptr<Machine>>;

   IntfStatusGateSm(Vok::Ptr<const VrfStatus> vrfStatus, Vok::Ptr<IntfBacklog> intfBacklog,
                    Vok::Ptr<IntfBacklogSm> intfBacklogSm,
                    Vok::Ptr<const KernelIntfStatus> kernelIntfStatus)
         : intfBacklog_(std::move(intfBacklog)),
           intfBacklogSm_(std::move(intfBacklogSm)),
           kernelIntfStatus_(std::move(kernelIntfStatus)),
           statusReactor_(std::make_unique<StatusReactor>(std::move(vrfStatus), *this)) {
      handleStatuses();
      kernelReactor_ = std::make_unique<KernelReactor>(
            Vok::ValidPtr<const KernelIntfStatus>(kernelIntfStatus_)->kernelIntfStatusDir(), *this);
      handleKernelIntf();
      handleInitialized();
   }

   ~IntfStatusGateSm() override {
      statusReactor_->isZombieIs(true);
      kernelReactor_->isZombieIs(true);
      // Each machine withdraws its addresses as it goes.
      Machines machines = std::move(machines_);
      machines.clear();
   }

   void handleInitialized() { initialized_ = true; }
   bool initialized() const noexcept { return initialized_; }

   // Re-evaluates every interface of the VRF's collection.
   void handleStatuses() {
      VOK_TRACE(connectedRouteTrace(), 8, describe(), "");
      const Vok::Ptr<const VrfStatus> vrf = Vok::ValidPtr<const VrfStatus>(vrfStatus());
      const auto& statuses = Family::statuses(*vrf);  // `vrf` holds them for the walk
      prepareForNewMachines(statuses);
      forEachKey(statuses, [&](const Ovel::IntfId& id) { handleIntfId(id); });
   }

   // Re-evaluates every interface of the kernel directory.
   void handleKernelIntf() {
      VOK_TRACE(connectedRouteTrace(), 8, describe(), "");
      forEachKey(kernelReactor_->notifier()->intfStatusAndDeviceName(),
                 [&](const Ovel::IntfId& id) { handleIntfId(id); });
   }

   void handleIntfId(const Ovel::IntfId& intfId) {
      Vok::Ptr<IntfStatus> status = Family::status(*vrfStatus(), intfId);
      if (!status) {
         VOK_TRACE(connectedRouteTrace(), 8, describe(),
                   "intf=" << intfId << Family::kNotPresentInStatus);
         ZIPMARK(1, "handleIntfId", Zipmark::text(" intf=", intfId.name()),
                 Zipmark::text(Family::kNotPresentInStatus, ""));
         removeMachine(intfId);
         return;
      }
      if (!kernelIntfStatus_->kernelIntfPresent(intfId)) {
         VOK_TRACE(connectedRouteTrace(), 8, describe(),
                   "intf=" << intfId << " not present in kernelIntfStatus");
         ZIPMARK(1, "handleIntfId", Zipmark::text(" intf=", intfId.name()),
                 Zipmark::text(" not present in kernelIntfStatus", ""));
         removeMachine(intfId);
         return;
      }
      VOK_TRACE(connectedRouteTrace(), 8, describe(), "intf=" << intfId << " all conditions met");
      ZIPMARK(1, "handleIntfId", Zipmark::text(" intf=", intfId.name()),
              Zipmark::text(" all conditions met", ""));
      if (machines_.contains(intfId)) {
         // The existing machine follows its status by itself.
         VOK_TRACE(connectedRouteTrace(), 8, describe(), "intf=" << intfId << " SM exists");
         return;
      }
      VOK_TRACE(connectedRouteTrace(), 7, describe(), "intf=" << intfId << " create SM");
      ZIPMARK(1, "handleIntfId", Zipmark::text(" intf=", intfId.name()),
              Zipmark::text(Family::kCreateMark, ""));
      machineIs(intfId, status, intfBacklog_, intfBacklogSm_);
   }

   // The interface's machine, created unless one exists; one built from
   // other arguments is a wiring fault.
   Vok::Ptr<Machine> machineIs(const Ovel::IntfId& intfId, Vok::Ptr<const IntfStatus> status,
                               Vok::Ptr<IntfBacklog> intfBacklog,
                               Vok::Ptr<IntfBacklogSm> intfBacklogSm) {
      if (Vok::Ptr<Machine>* existing = machines_.lookup(intfId)) {
         const Machine& m = **existing;
         Vok::checkSameArgument(std::string(Family::kStatusAttribute), status.get(),
                                Family::machineStatus(m).get());
         Vok::checkSameArgument("intfBacklog", intfBacklog.get(), m.intfBacklog().get());
         Vok::checkSameArgument("intfBacklogSm", intfBacklogSm.get(), m.intfBacklogSm().get());
         return *existing;
      }
      Vok::Ptr<Machine> machine =
            Family::create(intfId, std::move(status), std::move(intfBacklog), std::move(intfBacklogSm));
      machine->hasNotificationActiveIs(notificationActive_);
      machines_.insertOrAssign(intfId, machine);
      return machine;
   }

   void machineDel(const Ovel::IntfId& intfId) {
      // Out of the map first: the machine's deletion runs in its destructor.
      Vok::Ptr<Machine> machine;
      if (Vok::Ptr<Machine>* existing = machines_.lookup(intfId)) {
         machine = std::move(*existing);
         machines_.erase(intfId);
      }
   }

   const Machines& machines() const noexcept { return machines_; }
   Vok::Ptr<Machine> machine(const Ovel::IntfId& intfId) const {
      const Vok::Ptr<Machine>* found = machines_.lookup(intfId);
      return found ? *found : nullptr;
   }
   const Vok::Ptr<const VrfStatus>& vrfStatus() const noexcept { return statusReactor_->notifier(); }
   const Vok::Ptr<IntfBacklog>& intfBacklog() const noexcept { return intfBacklog_; }
   const Vok::Ptr<IntfBacklogSm>& intfBacklogSm() const noexcept { return intfBacklogSm_; }
   const Vok::Ptr<const KernelIntfStatus>& kernelIntfStatus() const noexcept {
      return kernelIntfStatus_;
   }

   void hasNotificationActiveIs(bool active) {
      notificationActive_ = active;
      statusReactor_->hasNotificationActiveIs(active);
      kernelReactor_->hasNotificationActiveIs(active);
      for (auto& [intfId, machine] : machines_) {
         machine->hasNotificationActiveIs(active);
      }
   }

 private:
   class StatusReactor final : public Family::template StatusReactor<IntfStatusGateSm> {
    public:
      using Family::template StatusReactor<IntfStatusGateSm>::StatusReactor;
   };

   class KernelReactor final : public Vok::Reactor<Interface::DeviceIntfStatusDir> {
    public:
      KernelReactor(Vok::Ptr<const Interface::DeviceIntfStatusDir> dir, IntfStatusGateSm& owner)
            : Vok::Reactor<Interface::DeviceIntfStatusDir>(std::move(dir)), owner_(owner) {}
      void onIntfStatusAndDeviceName(const Ovel::IntfId& intfId) override {
         owner_.handleIntfId(intfId);
      }

    private:
      IntfStatusGateSm& owner_;
   };

   std::string describe() const {
      return intfBacklog_ ? intfBacklog_->vrfName().str() : std::string();
   }

   // A VRF's collection is usually walked whole when its container starts:
   // the store and the backlog then take their slots for every machine
   // about to start at once, instead of growing step by step under them.
   template <class Statuses>
   void prepareForNewMachines(const Statuses& statuses) {
      if (!intfBacklog_) {
         return;  // no store to prepare
      }
      std::size_t candidates = 0;
      for (const auto& [intfId, status] : statuses) {
         if (status && !machines_.contains(intfId) && kernelIntfStatus_->kernelIntfPresent(intfId)) {
            candidates += Machine::candidatesFor(*status);
         }
      }
      intfBacklog_->candidatesExpected(candidates);
   }

   void removeMachine(const Ovel::IntfId& intfId) {
      if (!machines_.contains(intfId)) {
         VOK_TRACE(connectedRouteTrace(), 8, describe(), "intf=" << intfId << " no SM");
         return;
      }
      VOK_TRACE(connectedRouteTrace(), 7, describe(), "intf=" << intfId << " delete SM");
      ZIPMARK(1, "handleIntfId", Zipmark::text(" intf=", intfId.name()),
              Zipmark::text(Family::kDeleteMark, ""));
      machineDel(intfId);
   }

   // Visits the keys in map order; the walk stays well defined when a visit
   // changes the map.
   template <class Map, class Fn>
   static void forEachKey(const Map& map, Fn&& visit) {
      for (auto it = map.begin(); it != map.end(); ++it) {
         visit(Ovel::IntfId(it->first));
      }
   }

   Vok::Ptr<IntfBacklog> intfBacklog_;
   Vok::Ptr<IntfBacklogSm> intfBacklogSm_;
   Vok::Ptr<const KernelIntfStatus> kernelIntfStatus_;
   std::unique_ptr<StatusReactor> statusReactor_;
   std::unique_ptr<KernelReactor> kernelReactor_;
   Machines machines_;
   bool notificationActive_ = true;
   bool initialized_ = false;
};

}  // namespace Routing::ConnectedRoute
