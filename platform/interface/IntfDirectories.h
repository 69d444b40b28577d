// The platform's interface directories that the per-namespace interface
// status managers consult: AllIntfStatusDir names each interface's kernel
// device (an interface without an entry uses its own name), and
// AllIntfStatusLocalDir assigns interfaces to a network namespace (with
// namespace filtering on, a device seen in a namespace counts for an
// interface only if the interface is unassigned or assigned to it).
#pragma once

#include <map>
#include <string>

#include "platform/ovel/IntfId.h"
#include "platform/ovel/NamespaceName.h"
#include "platform/vok/Notifier.h"

namespace Interface {

class IntfDirectoryNotifiee : public Vok::ReactorBase {
 public:
   virtual void onIntf(const Ovel::IntfId& /*intfId*/) {}
};

// A directory of one value per interface, notifying per interface.
template <class Value>
class IntfDirectory : public Vok::Notifier<IntfDirectoryNotifiee> {
 public:
   const std::map<Ovel::IntfId, Value>& entries() const noexcept { return entries_; }
   const Value* entry(const Ovel::IntfId& intfId) const {
      auto it = entries_.find(intfId);
      return it == entries_.end() ? nullptr : &it->second;
   }
   void entryIs(const Ovel::IntfId& intfId, const Value& value) {
      auto [it, inserted] = entries_.try_emplace(intfId, value);
      if (!inserted) {
         if (it->second == value) {
            return;
         }
         it->second = value;
      }
      notify([&](IntfDirectoryNotifiee& n) { n.onIntf(intfId); });
   }
   void entryDel(Ovel::IntfId intfId) {
      if (entries_.erase(intfId)) {
         notify([&](IntfDirectoryNotifiee& n) { n.onIntf(intfId); });
      }
   }

 private:
   std::map<Ovel::IntfId, Value> entries_;
};

class AllIntfStatusDir final : public IntfDirectory<std::string> {
 public:
   // The interface's kernel device name.
   std::string deviceName(const Ovel::IntfId& intfId) const {
      const std::string* name = entry(intfId);
      return name ? *name : std::string(intfId.name());
   }
};

class AllIntfStatusLocalDir final : public IntfDirectory<Ovel::NamespaceName> {
 public:
   // Whether a device of the interface seen in `netNs` counts for it.
   bool admits(const Ovel::IntfId& intfId, const Ovel::NamespaceName& netNs) const {
      const Ovel::NamespaceName* assigned = entry(intfId);
      return !assigned || *assigned == netNs;
   }
};

}  // namespace Interface
