// Feeds bytes to the rtnetlink reader as a socket read would hand them
// over: every message that fits goes through readMessage. Whatever comes
// back must hold only what a kernel could say (a prefix length within the
// family's, a link name a link can have); reading past a message's end is
// caught by the sanitizers, anything else that goes wrong aborts.
#include <linux/if.h>
#include <linux/netconf.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/linux/RtnlMessages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   // A socket read lands in an aligned buffer, exactly as long as it read.
   std::vector<nlmsghdr> storage(size / sizeof(nlmsghdr) + 1);
   std::memcpy(storage.data(), data, size);
   Linux::forEachMessage(storage.data(), size, [](const nlmsghdr* message) {
      const Linux::Message read = Linux::readMessage(message);
      if (const auto* addr = std::get_if<Linux::AddrRecord>(&read)) {
         const int bits = addr->family == AF_INET ? 32 : 128;
         if ((addr->family != AF_INET && addr->family != AF_INET6) || addr->prefixLen > bits) {
            std::abort();
         }
      } else if (const auto* link = std::get_if<Linux::LinkRecord>(&read)) {
         if (link->name.size() >= IFNAMSIZ) {
            std::abort();
         }
      } else if (const auto* netconf = std::get_if<Linux::NetconfRecord>(&read)) {
         if (netconf->ifindex <= 0 && netconf->ifindex != NETCONFA_IFINDEX_ALL) {
            std::abort();
         }
      }
   });
   return 0;
}
