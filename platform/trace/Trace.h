// The text trace: named handles with levels 0-9, enabled per handle and level.
//
// Levels are switched on by the CONNROUTE_TRACE environment variable, read
// when the first handle is created, or by traceConfigIs(). Its syntax is a
// comma-separated list of NAME or NAME/LEVELS, where NAME is a handle name or
// "*" for all handles and LEVELS is like "0-9", "8" or "0,7-9"; a bare NAME
// enables every level. Example: CONNROUTE_TRACE="IntfBacklogSm/8,ConnectedRoute/0-7".
//
// A line reads "Qualified::method:LINE [object] message". A disabled level
// costs one branch: VOK_TRACE formats nothing unless the level is on.
#pragma once

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/vok/Errors.h"  // pointerText, for objects without a name

namespace Vok {

struct TraceLine {
   std::string_view handle;
   int level;
   std::string text;
};

class TraceHandle {
 public:
   explicit TraceHandle(std::string name);
   TraceHandle(const TraceHandle&) = delete;
   TraceHandle& operator=(const TraceHandle&) = delete;
   ~TraceHandle();

   const std::string& name() const noexcept { return name_; }
   bool enabled(int level) const noexcept { return (mask_ >> level) & 1u; }
   void write(int level, const char* prettyFunction, int line, std::string_view object,
              std::string_view message) const;

 private:
   friend class TraceRegistry;
   std::string name_;
   std::uint32_t mask_ = 0;
};

// Applies a configuration in the CONNROUTE_TRACE syntax to every handle,
// present and future. Throws std::invalid_argument on bad syntax.
void traceConfigIs(std::string_view config);
// Why CONNROUTE_TRACE was not applied (empty when it was, or is unset).
const std::string& traceEnvironmentError();
// Where lines go; the default writes them to stderr. Null restores it.
void traceSinkIs(std::function<void(const TraceLine&)> sink);
// "Routing::ConnectedRoute::IntfBacklog::doAddBacklog" from a
// __PRETTY_FUNCTION__ text.
std::string qualifiedFunctionName(std::string_view prettyFunction);

}  // namespace Vok

#define VOK_TRACE(handle, level, object, message)                              \
   do {                                                                        \
      if ((handle).enabled(level)) [[unlikely]] {                              \
         std::ostringstream vokTraceStream_;                                   \
         vokTraceStream_ << message;                                           \
         (handle).write(level, __PRETTY_FUNCTION__, __LINE__, (object),        \
                        vokTraceStream_.str());                                \
      }                                                                        \
   } while (false)
