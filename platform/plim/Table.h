// Common ground of the RIB's shared tables: the shared contents behind every
// mount of one path, write permission per mount, and corruption reporting.
//
// Two mounts of one path hold one Backing, so a read-only mount sees what the
// writer wrote. A table mounted read-only refuses every change with
// Belm::NoPermissionException; a corrupt table raises
// Belm::CorruptionDetectedException on every access, and a reader that
// catches it reports it to corruptionDetected().
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/belm/Exceptions.h"
#include "platform/vok/Entity.h"

namespace Plim {

// The shared contents of one table; concrete tables extend it.
class Backing {
 public:
   virtual ~Backing() = default;
   bool corrupt = false;
   std::size_t corruptionReports = 0;
};

class Table : public Vok::Entity {
 public:
   bool writable() const noexcept { return writable_; }

   // Makes the table report corruption on every access (for tests and
   // fault drills), or heals it.
   void corruptionIs(bool corrupt) const noexcept { backing_->corrupt = corrupt; }
   bool corrupt() const noexcept { return backing_->corrupt; }

   // Handler for a corruption a reader caught: counted so that the owner of
   // the table can rebuild it; the table stays as it is.
   void corruptionDetected(const Belm::CorruptionDetectedException& error) const;
   std::size_t corruptionReports() const noexcept { return backing_->corruptionReports; }

 protected:
   Table(std::shared_ptr<Backing> backing, bool writable)
         : backing_(std::move(backing)), writable_(writable) {}

   enum class Change { write, remove, cleanup };
   void checkChange(Change change) const;
   void checkRead() const;

   template <class B>
   B& backing() const noexcept {
      return static_cast<B&>(*backing_);
   }

 private:
   std::shared_ptr<Backing> backing_;
   bool writable_;
};

}  // namespace Plim
