// The state database: entities of a named type mounted at a path.
//
// Mounting a path the first time creates its contents; every later mount of
// the same path, in this process, views the same contents (as mounts of
// shared memory would), read-only or for writing. Contents outlive their
// mounts, so a restarted component finds what an earlier one left behind.
//
//   auto mount = em->mount("routing/rib/routeConfig/ipv4/0/connected",
//                          "Routing::Rib::RouteConfig", {{{"route", 4112}}},
//                          Kordb::MountMode::write);
//   auto table = mount->entityAs<Routing::Rib::RouteConfig>();
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plim/RowDatabase.h"
#include "platform/plim/Table.h"
#include "platform/vok/Entity.h"

namespace VokPlim {
class Mount;
}

namespace Kordb {

enum class MountMode { readOnly, write };

struct CollectionSize {
   std::string name;
   std::size_t size;  // initial sizing hint; tables grow past it
};

struct MountDescription {
   std::vector<CollectionSize> collections;
};

using AttachFunction =
      std::function<Vok::Ptr<Vok::Entity>(std::shared_ptr<Plim::Backing>&, bool writable)>;

// Makes a table type mountable by name; `collections` are the collection
// names a mount description may size.
bool registerMountableType(std::string typeName, std::vector<std::string> collections,
                           AttachFunction attach);

// Moves the rows of a fresh backing of the type at `path` into a database.
using PersistFunction = std::function<void(Plim::Backing&, const std::shared_ptr<Plim::RowDatabase>&,
                                           const std::string& path)>;
// Lets a table type keep its rows in a database; `layout` describes its
// rows' layout, so that a directory written with another one is refused.
bool registerPersistentType(std::string typeName, std::string layout, PersistFunction persist);
// The layouts of every persistent type, for RowDatabase::open.
std::string persistentLayout();

class EntityManager final : public Vok::Entity {
 public:
   // Throws std::invalid_argument for an unknown type, a collection the type
   // does not have, or a path already holding another type.
   Vok::Ptr<VokPlim::Mount> mount(const std::string& path, std::string_view typeName,
                                  const MountDescription& description, MountMode mode) const;

   // Mounts currently in place (not yet unmounted).
   std::size_t mountCount() const noexcept { return mounted_; }
   // Paths that hold contents, mounted or not, in sorted order.
   std::vector<std::string> paths() const;
   std::string typeName(const std::string& path) const;
   // Forgets the contents of a path that is no longer mounted.
   bool cleanup(const std::string& path);

   // Tables of persistent types created from now on keep their rows in
   // `db` (null: in memory), and start with the rows it holds for them.
   void rowDatabaseIs(std::shared_ptr<Plim::RowDatabase> db) { rowDatabase_ = std::move(db); }
   const std::shared_ptr<Plim::RowDatabase>& rowDatabase() const noexcept { return rowDatabase_; }

 private:
   friend class VokPlim::Mount;
   struct Contents {
      std::string typeName;
      std::shared_ptr<Plim::Backing> backing;
      std::size_t mounts = 0;
   };
   mutable std::map<std::string, Contents, std::less<>> contents_;
   mutable std::size_t mounted_ = 0;
   std::shared_ptr<Plim::RowDatabase> rowDatabase_;
};

}  // namespace Kordb

namespace VokPlim {

// One mount of a path. It is in place from creation until unmount(); the
// entity stays usable by those who still hold it.
class Mount final : public Vok::Entity {
 public:
   Mount(Vok::Ptr<const Kordb::EntityManager> manager, std::string path, Vok::Ptr<Vok::Entity> entity)
         : manager_(std::move(manager)), path_(std::move(path)), entity_(std::move(entity)) {}
   ~Mount() override { unmount(); }

   const std::string& path() const noexcept { return path_; }
   bool mounted() const noexcept { return mounted_; }
   const Vok::Ptr<Vok::Entity>& entity() const noexcept { return entity_; }
   template <class T>
   Vok::Ptr<T> entityAs() const {
      return Vok::Ptr<T>(dynamic_cast<T*>(entity_.get()));
   }
   void unmount();

 private:
   Vok::Ptr<const Kordb::EntityManager> manager_;
   std::string path_;
   Vok::Ptr<Vok::Entity> entity_;
   bool mounted_ = true;
};

}  // namespace VokPlim
