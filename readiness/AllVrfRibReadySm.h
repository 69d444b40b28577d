// Turns readiness records into the RIB's protocol VRF status.
//
// For every VRF the RIB awaits (AllVrfRibReady::vrfRibReady) it keeps one
// ProtoVrfStatus entity, named by the VRF, in the given directory, and marks
// it ready (readyTime, then ready) once both of the VRF's flags are set. An
// entity is marked at most once; a VRF the RIB stops awaiting loses its
// entity, and entities of an earlier run that nobody awaits are swept at
// start. A readiness record that goes away leaves the entity as it is.
#pragma once

#include <map>
#include <memory>

#include "platform/rib/RibReady.h"
#include "platform/vok/Dir.h"
#include "readiness/ReadinessRecords.h"

namespace Routing::ConnectedRoute {

class AllVrfRibReadySm final : public Vok::Entity {
 public:
   AllVrfRibReadySm(Vok::Ptr<const Rib::AllVrfRibReady> allVrfRibReady,
                    Vok::Ptr<const AllVrfReadyStatus> allVrfReadyStatus, Vok::Ptr<Vok::Dir> dir);
   ~AllVrfRibReadySm() override;

   void handleInitialized();
   void handleVrfRibReady(const L3::VrfName& vrfName);
   bool vrfConnectedRoutesReady(const L3::VrfName& vrfName) const;
   void maybeSignalVrfReady(const L3::VrfName& vrfName);
   void hasNotificationActiveIs(bool active);

   bool initialized() const noexcept { return initialized_; }

 private:
   class VokAllVrfRibReady;
   class VokAllVrfReadyStatus;
   class VokVrfReadyStatus;

   void handleVrfReadyStatus(const L3::VrfName& vrfName);
   Vok::Ptr<Rib::ProtoVrfStatus> protoVrfStatusIs(const L3::VrfName& vrfName);

   Vok::Ptr<const Rib::AllVrfRibReady> allVrfRibReady_;
   Vok::Ptr<const AllVrfReadyStatus> allVrfReadyStatus_;
   Vok::Ptr<Vok::Dir> dir_;
   std::unique_ptr<VokAllVrfRibReady> ribReadyReactor_;
   std::unique_ptr<VokAllVrfReadyStatus> readyStatusReactor_;
   std::map<L3::VrfName, std::unique_ptr<VokVrfReadyStatus>> recordReactors_;
   bool notificationActive_ = true;
   bool initialized_ = false;
};

}  // namespace Routing::ConnectedRoute
