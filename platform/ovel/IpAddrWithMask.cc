// Construction check and "addr/len" text for IPv4 interface addresses; the
// arithmetic is constexpr in the header.

#include "platform/ovel/IpAddrWithMask.h"

#include <ostream>

#include "platform/ovel/MaskLength.h"

namespace Ovel {

IpAddrWithMask::IpAddrWithMask(IpAddr addr, uint8_t len) : addr_(addr), len_(len) {
   checkMaskLength(len, AddressFamily::ipv4);
}

std::string IpAddrWithMask::toString() const {
   return addr_.toString() + "/" + std::to_string(len_);
}

IpAddrWithMask IpAddrWithMask::parse(std::string_view text) {
   MaskedText parts = splitMaskedText(text, AddressFamily::ipv4);
   return IpAddrWithMask(IpAddr::parse(parts.addr), parts.len);
}

std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& addr) {
   return os << addr.toString();
}

}  // namespace Ovel
