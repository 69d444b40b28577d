// Conversions, subnet derivation, text and order of the generic interface
// address; parsing defers to the family types so the errors match theirs.

#include "platform/ovel/IpGenAddrWithMask.h"

#include <algorithm>
#include <charconv>
#include <ostream>

#include "platform/ovel/GenBytes.h"

namespace Ovel {

IpGenAddrWithMask::IpGenAddrWithMask(const IpAddrWithMask& addr)
      : af_(AddressFamily::ipv4), len_(addr.len()), bytes_(toGenBytes(addr.addr())) {}

IpGenAddrWithMask::IpGenAddrWithMask(const Ip6AddrWithMask& addr)
      : af_(AddressFamily::ipv6), len_(addr.len()), bytes_(addr.addr().bytes()) {}

IpGenAddr IpGenAddrWithMask::addr() const {
   switch (af_) {
      case AddressFamily::ipv4:
         return IpGenAddr(v4FromGenBytes(bytes_));
      case AddressFamily::ipv6:
         return IpGenAddr(Ip6Addr(bytes_));
      case AddressFamily::unknown:
         break;
   }
   return IpGenAddr();
}

IpGenPrefix IpGenAddrWithMask::prefix() const {
   switch (af_) {
      case AddressFamily::ipv4:
         return IpGenPrefix(v4FromGenBytes(bytes_), len_);
      case AddressFamily::ipv6:
         return IpGenPrefix(Ip6Addr(bytes_), len_);
      case AddressFamily::unknown:
         break;
   }
   return IpGenPrefix();
}

std::string IpGenAddrWithMask::toString() const {
   char text[kMaxChars];
   return std::string(text, toChars(text));
}

char* IpGenAddrWithMask::toChars(char* out) const {
   if (isEmpty()) {
      return std::copy_n("none", 4, out);
   }
   out = addr().toChars(out);
   *out++ = '/';
   return std::to_chars(out, out + 3, unsigned{len_}).ptr;
}

IpGenAddrWithMask IpGenAddrWithMask::parse(std::string_view text) {
   if (text == "none") {
      return IpGenAddrWithMask();
   }
   if (text.find(':') != std::string_view::npos) {
      return IpGenAddrWithMask(Ip6AddrWithMask::parse(text));
   }
   return IpGenAddrWithMask(IpAddrWithMask::parse(text));
}

std::strong_ordering IpGenAddrWithMask::operator<=>(const IpGenAddrWithMask& other) const {
   if (auto byFamily = af_ <=> other.af_; byFamily != 0) {
      return byFamily;
   }
   if (auto byAddr = bytes_ <=> other.bytes_; byAddr != 0) {
      return byAddr;
   }
   return len_ <=> other.len_;
}

std::ostream& operator<<(std::ostream& os, const IpGenAddrWithMask& addr) {
   return os << addr.toString();
}

}  // namespace Ovel
