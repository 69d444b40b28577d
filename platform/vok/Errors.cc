#include "platform/vok/Errors.h"

#include "platform/vok/Entity.h"

#include <sstream>

namespace Vok {

std::string pointerText(const void* object) {
   std::ostringstream os;
   os << object;
   return os.str();
}

namespace detail {

void throwInjectedFault() {
   creationsBeforeFault = -1;
   throw InjectedFault();
}

}  // namespace detail

}  // namespace Vok
