// Publishes, next to the RIB's tables in a table directory, what an operator
// needs to read them from another process and that the tables do not hold:
// every VRF's name, readiness and drain figures, and every prefix's
// candidate interfaces with the owner the installer chose.
//
// It runs at the end of every turn, inside the turn's transaction, so a
// reader sees the published state of the same moment as the rows. The
// candidates of a prefix are written again only when the installer has
// drained a backlog entry of that prefix: in runs while a drain slice runs,
// the last at the turn's end.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/read/PublishedRows.h"
#include "lifecycle/RootSm.h"
#include "platform/agent/SharedState.h"
#include "platform/plim/RowDatabase.h"

namespace App {

class TablePublisher {
 public:
   TablePublisher(std::shared_ptr<Plim::RowDatabase> db, const Agent::SharedState& shared);
   ~TablePublisher();
   TablePublisher(const TablePublisher&) = delete;
   TablePublisher& operator=(const TablePublisher&) = delete;

   // Brings the published state up to date with `root` (null: the agent is
   // stopped) at virtual time `now`.
   void publish(const Routing::ConnectedRoute::RootSm* root, double now);

 private:
   class Watch;
   struct Published {
      const Routing::ConnectedRoute::ContainerSm* container = nullptr;
      std::unique_ptr<Watch> watch;
      VrfStatusRow status;         // the row last written
      std::uint64_t turn = 0;      // the last turn that found the container
   };

   void watch(std::uint32_t vrfId, const Routing::ConnectedRoute::ContainerSm& container,
              Published& published);
   void forget(std::uint32_t vrfId);
   void publishCandidates(std::uint32_t vrfId, Watch& watch);

   std::shared_ptr<Plim::RowDatabase> db_;
   const Agent::SharedState& shared_;
   std::map<std::uint32_t, Published> published_;  // by VRF identifier
   std::string agentRow_;
   std::uint64_t turn_ = 0;
};

// A served VRF's status as published: readiness, backlog, drains.
VrfStatusRow vrfStatusOf(const Routing::ConnectedRoute::RootSm& root,
                         const Routing::ConnectedRoute::ContainerSm& container,
                         const Agent::SharedState& shared);

// The live agent's counters of a namespace it reads, written in the turn
// being made; withdrawn when it reads the namespace no more.
void publishNamespaceCounters(Plim::RowDatabase& db, const NamespaceCounters& counters);
void withdrawNamespaceCounters(Plim::RowDatabase& db, const std::string& netns);

}  // namespace App
