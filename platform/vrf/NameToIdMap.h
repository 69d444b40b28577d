// The RIB's map from VRF names to identifiers, and the holder through which
// it is published: the holder's `nameToIdMap` may be absent, and may be
// replaced by a new map object at any time.
#pragma once

#include <map>

#include "platform/l3/VrfName.h"
#include "platform/vok/Notifier.h"
#include "platform/vrf/VrfId.h"

namespace Vrf::VrfIdMap {

class NameToIdMapNotifiee : public Vok::ReactorBase {
 public:
   virtual void onVrfNameToId(const L3::VrfName& /*vrfName*/) {}
};

class NameToIdMap final : public Vok::Notifier<NameToIdMapNotifiee> {
 public:
   using Collection = std::map<L3::VrfName, VrfId>;

   const Collection& vrfNameToId() const noexcept { return ids_; }
   // The VRF's identifier, or nothing.
   std::optional<VrfId> vrfNameToId(const L3::VrfName& vrfName) const {
      auto it = ids_.find(vrfName);
      return it == ids_.end() ? std::nullopt : std::optional<VrfId>(it->second);
   }
   void vrfNameToIdIs(const L3::VrfName& vrfName, VrfId id) {
      auto [it, inserted] = ids_.try_emplace(vrfName, id);
      if (!inserted) {
         if (it->second == id) {
            return;
         }
         it->second = id;
      }
      notify([&](NameToIdMapNotifiee& n) { n.onVrfNameToId(vrfName); });
   }
   void vrfNameToIdDel(L3::VrfName vrfName) {
      if (ids_.erase(vrfName)) {
         notify([&](NameToIdMapNotifiee& n) { n.onVrfNameToId(vrfName); });
      }
   }

 private:
   Collection ids_;
};

class NameToIdMapWrapperNotifiee : public Vok::ReactorBase {
 public:
   virtual void onNameToIdMap() {}
};

class NameToIdMapWrapper final : public Vok::Notifier<NameToIdMapWrapperNotifiee> {
 public:
   const Vok::Ptr<NameToIdMap>& nameToIdMap() const noexcept { return map_; }
   void nameToIdMapIs(Vok::Ptr<NameToIdMap> map) {
      if (map != map_) {
         map_ = std::move(map);
         notify([](NameToIdMapWrapperNotifiee& n) { n.onNameToIdMap(); });
      }
   }

 private:
   Vok::Ptr<NameToIdMap> map_;
};

}  // namespace Vrf::VrfIdMap
