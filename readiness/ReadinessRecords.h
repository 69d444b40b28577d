// The records through which connected-route readiness flows: how the agent
// started (IvoState), whether one VRF's IPv4 and IPv6 connected routes are
// complete (VrfReadyStatus), and all such records (AllVrfReadyStatus).
// Every setter notifies only on change; the flags are never cleared, the
// record goes away with its VRF instead.
#pragma once

#include <map>

#include "platform/agent/StartupMode.h"
#include "platform/l3/VrfName.h"
#include "platform/vok/Notifier.h"

namespace Routing::ConnectedRoute {

class IvoStateNotifiee : public Vok::ReactorBase {
 public:
   virtual void onStartReadyVerification() {}
};

class IvoState final : public Vok::Notifier<IvoStateNotifiee> {
 public:
   explicit IvoState(Agent::StartupMode startupMode) : startupMode_(startupMode) {}

   Agent::StartupMode startupMode() const noexcept { return startupMode_; }
   bool startReadyVerification() const noexcept { return startReadyVerification_; }
   void startReadyVerificationIs(bool value) {
      if (value != startReadyVerification_) {
         startReadyVerification_ = value;
         notify([](IvoStateNotifiee& n) { n.onStartReadyVerification(); });
      }
   }

 private:
   Agent::StartupMode startupMode_;
   bool startReadyVerification_ = false;
};

class VrfReadyStatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onV4ConnectedRoutesReady() {}
   virtual void onV6ConnectedRoutesReady() {}
};

class VrfReadyStatus final : public Vok::Notifier<VrfReadyStatusNotifiee> {
 public:
   explicit VrfReadyStatus(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}

   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   bool v4ConnectedRoutesReady() const noexcept { return v4_; }
   bool v6ConnectedRoutesReady() const noexcept { return v6_; }
   void v4ConnectedRoutesReadyIs(bool ready) {
      if (ready != v4_) {
         v4_ = ready;
         notify([](VrfReadyStatusNotifiee& n) { n.onV4ConnectedRoutesReady(); });
      }
   }
   void v6ConnectedRoutesReadyIs(bool ready) {
      if (ready != v6_) {
         v6_ = ready;
         notify([](VrfReadyStatusNotifiee& n) { n.onV6ConnectedRoutesReady(); });
      }
   }

 private:
   L3::VrfName vrfName_;
   bool v4_ = false;
   bool v6_ = false;
};

class AllVrfReadyStatusNotifiee : public Vok::ReactorBase {
 public:
   virtual void onVrfReadyStatus(const L3::VrfName& /*vrfName*/) {}
};

class AllVrfReadyStatus final : public Vok::Notifier<AllVrfReadyStatusNotifiee> {
 public:
   using Collection = std::map<L3::VrfName, Vok::Ptr<VrfReadyStatus>>;

   const Collection& vrfReadyStatus() const noexcept { return records_; }
   Vok::Ptr<VrfReadyStatus> vrfReadyStatus(const L3::VrfName& vrfName) const {
      auto it = records_.find(vrfName);
      return it == records_.end() ? nullptr : it->second;
   }
   // The VRF's record, created if absent.
   Vok::Ptr<VrfReadyStatus> vrfReadyStatusIs(const L3::VrfName& vrfName) {
      if (auto it = records_.find(vrfName); it != records_.end()) {
         return it->second;
      }
      // Built before it is inserted: a failed build leaves no empty record.
      Vok::Ptr<VrfReadyStatus> record = Vok::make<VrfReadyStatus>(vrfName);
      records_.emplace(vrfName, record);
      notify([&](AllVrfReadyStatusNotifiee& n) { n.onVrfReadyStatus(vrfName); });
      return record;
   }
   void vrfReadyStatusDel(L3::VrfName vrfName) {
      if (records_.erase(vrfName)) {
         notify([&](AllVrfReadyStatusNotifiee& n) { n.onVrfReadyStatus(vrfName); });
      }
   }
   void vrfReadyStatusDelAll() {
      while (!records_.empty()) {
         vrfReadyStatusDel(records_.begin()->first);
      }
   }

 private:
   Collection records_;
};

}  // namespace Routing::ConnectedRoute
