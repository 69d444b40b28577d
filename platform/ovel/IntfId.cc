// Validation of interface names. The constructor and the parser share the
// checks but raise different exceptions: a bad name in code is a caller
// error, a bad name in text is a parse error.

#include "platform/ovel/IntfId.h"

#include <cstdio>
#include <cstring>
#include <ostream>
#include <stdexcept>

#include "platform/vok/Errors.h"

namespace Ovel {

namespace {

const char* const tooLongText = "IntfId::bytes > 23 not allowed";

bool isAllowed(char c) {
   return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
          c == '/' || c == '.' || c == '-' || c == '_' || c == ':';
}

// Text naming the first disallowed character, or "" when there is none.
// Unprintable bytes are shown in hex so the message stays readable.
std::string badCharacterText(std::string_view name) {
   for (char c : name) {
      if (isAllowed(c)) {
         continue;
      }
      std::string shown;
      if (c >= ' ' && c < 0x7f) {
         shown = std::string("'") + c + "'";
      } else {
         char hex[8];
         std::snprintf(hex, sizeof(hex), "0x%02x", static_cast<unsigned char>(c));
         shown = hex;
      }
      return "bad character " + shown + " in interface name '" + std::string(name) + "'";
   }
   return {};
}

}  // namespace

IntfId::IntfId(std::string_view name) {
   if (name.size() > maxBytes) {
      throw std::range_error(tooLongText);
   }
   if (std::string bad = badCharacterText(name); !bad.empty()) {
      throw std::invalid_argument(bad);
   }
   std::memcpy(name_.data(), name.data(), name.size());
}

std::string_view IntfId::name() const {
   // The constructor forbids NUL and leaves at least the last byte zero, so
   // the name ends at the first zero.
   return std::string_view(name_.data());
}

IntfId IntfId::parse(std::string_view text) {
   if (text.size() > maxBytes) {
      throw Vok::ParseError(tooLongText);
   }
   if (std::string bad = badCharacterText(text); !bad.empty()) {
      throw Vok::ParseError(bad);
   }
   return IntfId(text);
}

std::ostream& operator<<(std::ostream& os, const IntfId& intf) { return os << intf.name(); }

}  // namespace Ovel
