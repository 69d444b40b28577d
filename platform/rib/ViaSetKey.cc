// Decimal text of via set keys, range-checked against their 32 bits so a
// too-large number is refused rather than truncated.

#include "platform/rib/ViaSetKey.h"

#include <limits>
#include <ostream>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace Routing::Rib {

ViaSetKey ViaSetKey::parse(std::string_view text) {
   if (const char* fault = Ovel::decimalFault(text)) {
      throw Vok::ParseError("via set key '" + std::string(text) + "' " + fault);
   }
   uint64_t value = Ovel::decimalValue(text);
   if (value > std::numeric_limits<uint32_t>::max()) {
      throw Vok::ParseError("via set key " + std::string(text) + " out of range");
   }
   return ViaSetKey(static_cast<uint32_t>(value));
}

std::ostream& operator<<(std::ostream& os, const ViaSetKey& key) { return os << key.toString(); }

}  // namespace Routing::Rib
