// Size check and text form of VRF names; the over-long text is fixed
// because operators and log scrapers match on it.

#include "platform/l3/VrfName.h"

#include <ostream>
#include <stdexcept>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace L3 {

namespace {

const char* const tooLongText = "VrfName::bytes > 100 not allowed";

}  // namespace

VrfName::VrfName(std::string name) : name_(std::move(name)) {
   if (name_.size() > maxBytes) {
      throw std::range_error(tooLongText);
   }
}

VrfName VrfName::parse(std::string_view text) {
   if (text.size() > maxBytes) {
      throw Vok::ParseError(tooLongText);
   }
   if (Ovel::hasSurroundingSpace(text)) {
      throw Vok::ParseError("surrounding whitespace in VRF name '" + std::string(text) + "'");
   }
   return VrfName(std::string(text));
}

std::ostream& operator<<(std::ostream& os, const VrfName& name) { return os << name.str(); }

}  // namespace L3
