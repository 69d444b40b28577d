// Size check and text form of namespace names; the over-long text is fixed
// because operators and log scrapers match on it.

#include "platform/ovel/NamespaceName.h"

#include <ostream>
#include <stdexcept>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace Ovel {

namespace {

const char* const tooLongText = "NamespaceName::bytes > 150 not allowed";

}  // namespace

NamespaceName::NamespaceName(std::string name) : name_(std::move(name)) {
   if (name_.size() > maxBytes) {
      throw std::range_error(tooLongText);
   }
}

NamespaceName NamespaceName::defaultNamespace() { return NamespaceName("default"); }

NamespaceName NamespaceName::parse(std::string_view text) {
   if (text.size() > maxBytes) {
      throw Vok::ParseError(tooLongText);
   }
   if (hasSurroundingSpace(text)) {
      throw Vok::ParseError("surrounding whitespace in namespace name '" + std::string(text) +
                            "'");
   }
   return NamespaceName(std::string(text));
}

std::ostream& operator<<(std::ostream& os, const NamespaceName& name) {
   return os << name.str();
}

}  // namespace Ovel
