// The "transport:vrfId:id" text of via keys, with each field range-checked
// against the width it is stored in.

#include "platform/rib/ViaKey.h"

#include <array>
#include <charconv>
#include <limits>
#include <ostream>

#include "platform/ovel/StrictText.h"
#include "platform/vok/Errors.h"

namespace Routing::Rib {

char* ViaKey::toChars(char* out) const {
   out = std::to_chars(out, out + 3, transport_).ptr;
   *out++ = ':';
   out = std::to_chars(out, out + 10, vrfId_).ptr;
   *out++ = ':';
   return std::to_chars(out, out + 10, id_).ptr;
}

std::string ViaKey::toString() const {
   char text[kMaxChars];
   return std::string(text, toChars(text));
}

ViaKey ViaKey::parse(std::string_view text) {
   auto fail = [text](const std::string& why) {
      return Vok::ParseError("bad via key '" + std::string(text) + "': " + why);
   };
   constexpr std::array<const char*, 3> names{"transport", "vrfId", "id"};
   constexpr std::array<uint64_t, 3> limits{std::numeric_limits<uint8_t>::max(),
                                            std::numeric_limits<uint32_t>::max(),
                                            std::numeric_limits<uint32_t>::max()};
   std::array<uint64_t, 3> values{};
   std::string_view rest = text;
   for (size_t i = 0; i < values.size(); ++i) {
      size_t colon = rest.find(':');
      bool last = i + 1 == values.size();
      if (last != (colon == std::string_view::npos)) {
         throw fail("expected transport:vrfId:id");
      }
      std::string_view field = rest.substr(0, colon);
      if (const char* fault = Ovel::decimalFault(field)) {
         throw fail(std::string(names[i]) + " '" + std::string(field) + "' " + fault);
      }
      values[i] = Ovel::decimalValue(field);
      if (values[i] > limits[i]) {
         throw fail(std::string(names[i]) + " " + std::string(field) + " out of range");
      }
      if (!last) {
         rest.remove_prefix(colon + 1);
      }
   }
   return ViaKey(static_cast<uint8_t>(values[0]), static_cast<uint32_t>(values[1]),
                 static_cast<uint32_t>(values[2]));
}

std::ostream& operator<<(std::ostream& os, const ViaKey& key) { return os << key.toString(); }

}  // namespace Routing::Rib
