// Text form of VRF ids, with the invalid id spelled as a word so it cannot
// be mistaken for a real, large id in a dump.

#include "platform/vrf/VrfId.h"

#include <ostream>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace Vrf::VrfIdMap {

std::string VrfId::toString() const {
   return isValid() ? std::to_string(value_) : std::string("invalid");
}

VrfId VrfId::parse(std::string_view text) {
   if (text == "invalid") {
      return invalid();
   }
   if (const char* fault = Ovel::decimalFault(text)) {
      throw Vok::ParseError("VRF id '" + std::string(text) + "' " + fault);
   }
   uint64_t value = Ovel::decimalValue(text);
   if (value >= invalidValue) {
      throw Vok::ParseError("VRF id " + std::string(text) +
                            " out of range (the invalid id is written 'invalid')");
   }
   return VrfId(static_cast<uint32_t>(value));
}

std::ostream& operator<<(std::ostream& os, const VrfId& id) { return os << id.toString(); }

}  // namespace Vrf::VrfIdMap
