// Conversions between the generic address and the family types, and the
// family dispatch of its text form.

#include "platform/ovel/IpGenAddr.h"

#include <algorithm>
#include <ostream>

#include "platform/ovel/GenBytes.h"
#include "platform/vok/Assert.h"

namespace Ovel {

IpGenAddr::IpGenAddr(IpAddr addr) : af_(AddressFamily::ipv4), bytes_(toGenBytes(addr)) {}

IpGenAddr::IpGenAddr(Ip6Addr addr) : af_(AddressFamily::ipv6), bytes_(addr.bytes()) {}

IpAddr IpGenAddr::v4() const {
   VOK_ASSERT(isV4(), "IpGenAddr::v4 on an address that is not IPv4");
   return v4FromGenBytes(bytes_);
}

Ip6Addr IpGenAddr::v6() const {
   VOK_ASSERT(isV6(), "IpGenAddr::v6 on an address that is not IPv6");
   return Ip6Addr(bytes_);
}

char* IpGenAddr::toChars(char* out) const {
   if (isV4()) {
      return v4().toChars(out);
   }
   if (isV6()) {
      return v6().toChars(out);
   }
   constexpr std::string_view none = "none";
   return std::copy(none.begin(), none.end(), out);
}

std::string IpGenAddr::toString() const {
   char text[kMaxChars];
   return std::string(text, toChars(text));
}

IpGenAddr IpGenAddr::parse(std::string_view text) {
   if (text == "none") {
      return IpGenAddr();
   }
   if (text.find(':') != std::string_view::npos) {
      return IpGenAddr(Ip6Addr::parse(text));
   }
   return IpGenAddr(IpAddr::parse(text));
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr) {
   return os << addr.toString();
}

}  // namespace Ovel
