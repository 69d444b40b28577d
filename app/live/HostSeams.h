// What the live agent needs of the host, each behind one small interface:
// the directory of named network namespaces, the rtnetlink sockets of a
// namespace, and the event loop's registry of descriptors. The program
// assembles the real ones (HostSeams.cc); the decisions above them
// (NamespaceService) are tested with fakes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/RtnlSocket.h"

namespace App {

// A namespace file's identity: a namespace deleted and made again under the
// same name between two looks is another namespace.
using FileIdentity = std::pair<dev_t, ino_t>;

class NetnsDirectory {
 public:
   virtual ~NetnsDirectory() = default;
   // The files present now, by name.
   virtual std::map<std::string, FileIdentity> entries() const = 0;
   // The file of a named namespace, as a socket factory opens it.
   virtual std::string pathOf(const std::string& netns) const = 0;
};

// The sockets of one namespace, as Linux::RtnlSocket describes them.
class NamespaceSocket {
 public:
   virtual ~NamespaceSocket() = default;
   // The namespace file the sockets were opened in (zero for the agent's own).
   virtual FileIdentity identity() const = 0;
   virtual std::vector<int> fds() const = 0;
   virtual void dump() = 0;
   virtual bool dumping() const = 0;
   virtual void refreshSettings() = 0;
   virtual void receive() = 0;
   virtual std::uint64_t malformedCount() const = 0;
   virtual const Linux::RtnlSocket::Counters& counters() const = 0;
};

class SocketFactory {
 public:
   virtual ~SocketFactory() = default;
   // `netnsPath` empty: the agent's own namespace. Throws when the
   // namespace cannot be entered or the sockets not opened.
   virtual std::unique_ptr<NamespaceSocket> open(const std::string& netnsPath,
                                                 Linux::RtnlListener& listener) = 0;
};

// The event loop's descriptors: `tag` comes back when `fd` is readable.
class FdRegistry {
 public:
   virtual ~FdRegistry() = default;
   // Throws when the descriptor cannot be watched.
   virtual void add(int fd, void* tag) = 0;
   virtual void remove(int fd) = 0;
};

// The real ones.
std::unique_ptr<NetnsDirectory> netnsDirectoryAt(std::string path);
std::unique_ptr<SocketFactory> rtnlSocketFactory(int receiveBuffer);

}  // namespace App
