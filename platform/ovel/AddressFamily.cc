// Text form of the address family tag. The names match the family keywords
// operators type, so the same words read back in.

#include "platform/ovel/AddressFamily.h"

#include <ostream>

#include "platform/vok/Errors.h"

namespace Ovel {

std::string toString(AddressFamily af) {
   switch (af) {
      case AddressFamily::unknown:
         return "unknown";
      case AddressFamily::ipv4:
         return "ipv4";
      case AddressFamily::ipv6:
         return "ipv6";
   }
   return "AddressFamily(" + std::to_string(static_cast<unsigned>(af)) + ")";
}

AddressFamily parseAddressFamily(std::string_view text) {
   for (auto af : {AddressFamily::unknown, AddressFamily::ipv4, AddressFamily::ipv6}) {
      if (text == toString(af)) {
         return af;
      }
   }
   throw Vok::ParseError("bad address family '" + std::string(text) + "'");
}

std::ostream& operator<<(std::ostream& os, AddressFamily af) { return os << toString(af); }

}  // namespace Ovel
