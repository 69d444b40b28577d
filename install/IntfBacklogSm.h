// The per-VRF route installer: drains the store's backlog on its own clock,
// chooses the owner of every prefix, keeps vias and via sets, and writes the
// RIB's route tables.
//
// It reads the store's backlog and candidate sets in place (they live in the
// same process: a copy would only double the memory and the work) and
// watches the store through a reactor. A backlog change arms the clock
// backlogDelay (40 ms) ahead unless a drain is already scheduled; a
// schedule is never pushed back, so a steady stream of changes cannot
// starve the drain. Each firing processes entries for at most
// backlogQuantum (80 ms, checked after every entry), then bookmarks where it
// stopped and schedules the next slice. The owner of a prefix is the first
// entry of its candidate set, in that set's deterministic order.
#pragma once

#include <cstdint>
#include <memory>

#include "install/RibTables.h"
#include "model/IntfBacklog.h"
#include "platform/ip/IpIntfStatus.h"
#include "platform/ip6/Ip6IntfStatus.h"
#include "platform/vok/ActivityManager.h"

namespace Routing::ConnectedRoute {

class IntfBacklogSm final : public Vok::Entity {
 public:
   using VrfId = Vrf::VrfIdMap::VrfId;

   IntfBacklogSm(L3::VrfName vrfName, VrfId vrfId, Vok::ActivityManager* systemClock,
                 Vok::Ptr<const Ip::Status> ipStatus, Vok::Ptr<const Ip6::Status> ip6Status,
                 Vok::Ptr<Rib::Ip::ViaConfig> ipv4ViaConfig, Vok::Ptr<Rib::RouteConfig> route4Config,
                 Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig,
                 Vok::Ptr<Rib::Ip::ViaConfig> ipv6ViaConfig, Vok::Ptr<Rib::RouteConfig> route6Config,
                 Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
                 Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<IntfBacklog> intfBacklog);
   ~IntfBacklogSm() override;

   void handleInitialized();

   // The drain.
   void scheduleBacklog();
   void handleBacklog();
   bool processBacklog(const IntfIdAndPrefix& key);

   // Owner choice.
   Ovel::IntfId getCandidateIntfId(const Ovel::IpGenPrefix& prefix) const;
   ConnectedRouteProperty getCandidateRouteProperty(const Ovel::IpGenPrefix& prefix) const;
   Ovel::IntfId installedIntfId(const Ovel::IpGenPrefix& prefix) const;

   // Vias and via sets of an interface and family.
   IntfViaSetKey findOrCreateViaSetKey(const Ovel::IntfId& intfId, Ovel::AddressFamily af);
   void doAddViaSet(const Ovel::IntfId& intfId, Rib::Ip::ViaConfig& viaConfig,
                    IntfViaSetKeyStatus& keyStatus);
   void delViaSetKey(const Ovel::IntfId& intfId, Ovel::AddressFamily af);
   // Gives up one use of the interface's keys in the family, and deletes its
   // vias and via sets when none is left.
   void doReleaseViaSetKey(const Ovel::IntfId& intfId, Ovel::AddressFamily af);

   // Route writers; the installed owner is recorded before an add and
   // forgotten after a delete.
   void doRouteConfigAdd(const Ovel::IntfId& intfId, Rib::RouteConfig* routeConfig,
                         const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey,
                         Fib::RouteType routeType);
   void doRouteConfigDel(const Ovel::IntfId& intfId, Rib::RouteConfig* routeConfig,
                         const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey);
   void doOrmoRouteConfigAdd(const Ovel::IntfId& intfId, Rib::IpRibRouteOrqTable* table,
                             const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey,
                             Fib::RouteType routeType);
   void doOrmoRouteConfigDel(const Ovel::IntfId& intfId, Rib::IpRibRouteOrqTable* table,
                             const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey);

   // Attributes.
   const L3::VrfName& vrfName() const noexcept { return vrfName_; }
   VrfId vrfId() const noexcept { return vrfId_; }
   const Vok::Clock* backlogClock() const noexcept { return backlogClock_.get(); }
   const Vok::Ptr<IntfBacklog>& intfBacklog() const noexcept { return intfBacklog_; }
   const Vok::Ptr<const Ip::Status>& ipStatus() const noexcept { return ipStatus_; }
   const Vok::Ptr<const Ip6::Status>& ip6Status() const noexcept { return ip6Status_; }
   // The tables it writes, also one by one.
   const RibTables& ribTables() const noexcept { return tables_; }
   const Vok::Ptr<Rib::Ip::ViaConfig>& ipv4ViaConfig() const noexcept { return tables_.ipv4.viaConfig; }
   const Vok::Ptr<Rib::Ip::ViaConfig>& ipv6ViaConfig() const noexcept { return tables_.ipv6.viaConfig; }
   const Vok::Ptr<Rib::RouteConfig>& route4Config() const noexcept { return tables_.ipv4.routeConfig; }
   const Vok::Ptr<Rib::RouteConfig>& route6Config() const noexcept { return tables_.ipv6.routeConfig; }
   const Vok::Ptr<Rib::IpRibRouteOrqTable>& route4OrmoConfig() const noexcept {
      return tables_.ipv4.queryTable;
   }
   const Vok::Ptr<Rib::IpRibRouteOrqTable>& route6OrmoConfig() const noexcept {
      return tables_.ipv6.queryTable;
   }
   const Vok::Ptr<Rib::ViaSetConfig>& viaSetConfig() const noexcept { return tables_.viaSetConfig; }
   // The store's backlog, which the installer drains in place.
   const IntfBacklog::Backlog& backlog() const;
   // How many prefixes have an installed owner.
   std::size_t installedIntfIdCount() const;
   const Vok::Ptr<IntfViaSetKeyStatus>& intfViaSetKeyStatus4() const;
   const Vok::Ptr<IntfViaSetKeyStatus>& intfViaSetKeyStatus6() const;

   double backlogQuantum() const noexcept { return backlogQuantum_; }
   void backlogQuantumIs(double seconds) noexcept { backlogQuantum_ = seconds; }
   double backlogDelay() const noexcept { return backlogDelay_; }
   void backlogDelayIs(double seconds);
   std::uint32_t handleBacklogCallCount() const noexcept { return handleBacklogCallCount_; }
   // The longest drain slice so far, on the drain's clock.
   Vok::Seconds longestSlice() const noexcept { return longestSlice_; }
   // Entries the drain still has to process.
   std::size_t pendingCount() const;
   void handleBacklogCallCountIs(std::uint32_t count) noexcept { handleBacklogCallCount_ = count; }
   const IntfIdAndPrefix& backlogBookmark() const noexcept { return backlogBookmark_; }
   void backlogBookmarkIs(const IntfIdAndPrefix& key) noexcept { backlogBookmark_ = key; }
   bool initialized() const noexcept { return initialized_; }
   void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

 private:
   class VokIntfBacklog;

   std::string describe() const { return vrfName_.str(); }
   IntfViaSetKeyStatus& keyStatusFor(Ovel::AddressFamily af) const;
   // The installed owner, kept in the store beside the prefix's candidates
   // as the interface's number; an installer without a store keeps none.
   IntfNumber ownerNumberOf(const Ovel::IntfId& intfId);
   // `record` is the prefix's record in the store when the caller found it
   // already, or null.
   void recordOwner(const Ovel::IpGenPrefix& prefix, IntfNumber owner, PrefixRecord* record);
   // The drain knows the owner's number and the prefix's record already:
   // these skip the lookups that the public writers make. The owner's name
   // is read only for a trace: `intfId` names it, or when null, the number
   // does (a lookup the drain saves on every route it writes).
   void routeConfigAdd(IntfNumber owner, const Ovel::IntfId* intfId, Rib::RouteConfig* routeConfig,
                       const Ovel::IpGenPrefix& prefix, Rib::ViaSetKey viaSetKey,
                       Fib::RouteType routeType, PrefixRecord* record);
   const Ovel::IntfId& ownerName(IntfNumber owner, const Ovel::IntfId* intfId) const;
   void ormoRouteConfigAdd(IntfNumber owner, const Ovel::IntfId* intfId,
                           Rib::IpRibRouteOrqTable* queryTable, const Ovel::IpGenPrefix& prefix,
                           Rib::ViaSetKey viaSetKey, Fib::RouteType routeType,
                           PrefixRecord* record);
   void forgetOwner(const Ovel::IpGenPrefix& prefix);
   // The drain's view of the store's backlog (see handleBacklog).
   bool pending(const IntfIdAndPrefix& key, bool value) const;
   IntfBacklog::Backlog::const_iterator firstPendingFrom(IntfBacklog::Backlog::const_iterator it) const;
   IntfBacklog::Backlog::const_iterator sliceStart();
   IntfBacklog::Backlog::const_iterator drainSlice(IntfBacklog::Backlog::const_iterator it,
                                                   Vok::Seconds start);
   void reserveRouteTables();
   static ConnectedRouteProperty ownerPropertyOf(const PrefixRecord* record);
   ConnectedRouteProperty installedProperty(const Ovel::IpGenPrefix& prefix) const;
   void writeViaSet(Rib::ViaSetKey key, const Rib::ViaKey& viaKey, Rib::RoutingProtocol rp,
                    Rib::ViaSetKind kind);


   L3::VrfName vrfName_;
   VrfId vrfId_;
   std::unique_ptr<Vok::Clock> backlogClock_;
   Vok::Ptr<const Ip::Status> ipStatus_;
   Vok::Ptr<const Ip6::Status> ip6Status_;
   RibTables tables_;
   Vok::Ptr<IntfBacklog> intfBacklog_;
   std::unique_ptr<VokIntfBacklog> intfBacklogReactor_;
   // Entries the store held as false when the installer was built and that
   // have not changed since: work, as they were for a copy taken then.
   Vok::HashMap<IntfIdAndPrefix, bool> inheritedFalse_;
   double backlogQuantum_ = 0.08;
   double backlogDelay_ = 0.04;
   std::uint32_t handleBacklogCallCount_ = 0;
   Vok::Seconds longestSlice_ = 0;
   IntfIdAndPrefix backlogBookmark_;
   bool initialized_ = false;
};

// Builds the installer and runs its initialisation.
Vok::Ptr<IntfBacklogSm> intfBacklogSmFactory(
      L3::VrfName vrfName, Vrf::VrfIdMap::VrfId vrfId, Vok::ActivityManager* systemClock,
      Vok::Ptr<const Ip::Status> ipStatus, Vok::Ptr<const Ip6::Status> ip6Status,
      Vok::Ptr<Rib::Ip::ViaConfig> ipv4ViaConfig, Vok::Ptr<Rib::RouteConfig> route4Config,
      Vok::Ptr<Rib::IpRibRouteOrqTable> route4OrmoConfig, Vok::Ptr<Rib::Ip::ViaConfig> ipv6ViaConfig,
      Vok::Ptr<Rib::RouteConfig> route6Config, Vok::Ptr<Rib::IpRibRouteOrqTable> route6OrmoConfig,
      Vok::Ptr<Rib::ViaSetConfig> viaSetConfig, Vok::Ptr<IntfBacklog> intfBacklog);

}  // namespace Routing::ConnectedRoute
