#include "platform/vok/Errors.h"

#include <sstream>

namespace Vok {

std::string pointerText(const void* object) {
   std::ostringstream os;
   os << object;
   return os.str();
}

}  // namespace Vok
