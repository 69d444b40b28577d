// Vias and via sets of the installer: created on first use of an interface
// in a family, with identifiers and keys that are never reused, and released
// when nothing of the interface uses them any more.
#include "install/IntfBacklogSm.h"
#include "install/IntfBacklogSmTrace.h"
#include "platform/vok/Assert.h"

namespace Routing::ConnectedRoute {

IntfViaSetKey IntfBacklogSm::findOrCreateViaSetKey(const Ovel::IntfId& intfId,
                                                   Ovel::AddressFamily af) {
   if (af != Ovel::AddressFamily::ipv4 && af != Ovel::AddressFamily::ipv6) {
      VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
                "intf=" << intfId << " af=" << static_cast<int>(af));
   }
   IntfViaSetKeyStatus& keyStatus = keyStatusFor(af);  // any other family: fatal "0"
   const IntfViaSetKey* record = keyStatus.intfViaSetKey(intfId);
   if (!record || record->isEmpty()) {
      doAddViaSet(intfId, *Vok::ValidPtr<Rib::Ip::ViaConfig>(tables_.of(af).viaConfig), keyStatus);
      record = keyStatus.intfViaSetKey(intfId);
   }
   return *record;
}

void IntfBacklogSm::writeViaSet(Rib::ViaSetKey key, const Rib::ViaKey& viaKey,
                                Rib::RoutingProtocol rp, Rib::ViaSetKind kind) {
   Rib::Plim::ViaSet viaSet;
   viaSet.key = key;
   viaSet.via = Rib::ViaRef{viaKey, rp};
   viaSet.kind = kind;
   viaSet.viaCount = 1;
   tables_.viaSetConfig->viaSetIs(viaSet);
}

void IntfBacklogSm::doAddViaSet(const Ovel::IntfId& intfId, Rib::Ip::ViaConfig& viaConfig,
                                IntfViaSetKeyStatus& keyStatus) {
   Vok::ValidPtr<Rib::ViaSetConfig> viaSets(tables_.viaSetConfig);
   const Rib::RoutingProtocol rp = viaConfig.rp();
   const Rib::ViaKey viaKey = viaConfig.newViaKey();
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
             "intf=" << intfId << " af=" << static_cast<int>(keyStatus.addressFamily())
                     << " viaId=" << viaKey);
   viaConfig.viaIs(Rib::attachedVia(viaKey, intfId));

   const Rib::ViaSetKey connected = viaSets->newViaSetKey();
   writeViaSet(connected, viaKey, rp, Rib::ViaSetKind::connected);
   const Rib::ViaSetKey receive = viaSets->newViaSetKey();
   writeViaSet(receive, viaKey, rp, Rib::ViaSetKind::receive);
   Rib::ViaSetKey receiveBroadcast, directedBroadcast;
   if (keyStatus.addressFamily() != Ovel::AddressFamily::ipv6) {
      receiveBroadcast = viaSets->newViaSetKey();
      writeViaSet(receiveBroadcast, viaKey, rp, Rib::ViaSetKind::receiveBroadcast);
      directedBroadcast = viaSets->newViaSetKey();
      writeViaSet(directedBroadcast, viaKey, rp, Rib::ViaSetKind::directedBroadcast);
   }
   keyStatus.intfViaSetKeyIs(
         IntfViaSetKey(intfId, viaKey, connected, receive, receiveBroadcast, directedBroadcast));
}

void IntfBacklogSm::doReleaseViaSetKey(const Ovel::IntfId& intfId, Ovel::AddressFamily af) {
   IntfViaSetKeyStatus& keyStatus = keyStatusFor(af);
   keyStatus.decIntfVskRefcount(intfId);
   if (keyStatus.vskRefcountByIntfId(intfId) == 0) {
      delViaSetKey(intfId, af);
   }
}

void IntfBacklogSm::delViaSetKey(const Ovel::IntfId& intfId, Ovel::AddressFamily af) {
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(),
             "intf=" << intfId << " af=" << static_cast<int>(af));
   IntfViaSetKeyStatus& keyStatus = keyStatusFor(af);  // any other family: fatal "0"
   const bool v4 = af == Ovel::AddressFamily::ipv4;
   const IntfViaSetKey* found = keyStatus.intfViaSetKey(intfId);
   if (!found || found->isEmpty()) {
      return;
   }
   const IntfViaSetKey record = *found;
   VOK_TRACE(intfBacklogSmTrace(), 8, describe(), (v4 ? "ipv4 intf=" : "ipv6 intf=") << intfId);
   for (Rib::ViaSetKey key : {record.viaSetKey(), record.rxViaSetKey(), record.rxBcastViaSetKey(),
                              record.directedBcastViaSetKey()}) {
      tables_.viaSetConfig->viaSetDel(key);
   }
   Vok::ValidPtr<Rib::Ip::ViaConfig>(tables_.of(af).viaConfig)->viaDel(record.viaKey());
   keyStatus.intfViaSetKeyDel(intfId);
}

}  // namespace Routing::ConnectedRoute
