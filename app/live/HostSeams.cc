#include "app/live/HostSeams.h"

#include <sys/stat.h>

#include <filesystem>

namespace App {

namespace {

namespace fs = std::filesystem;

class DirectoryOfNamespaces final : public NetnsDirectory {
 public:
   explicit DirectoryOfNamespaces(std::string path) : path_(std::move(path)) {}

   std::map<std::string, FileIdentity> entries() const override {
      std::map<std::string, FileIdentity> present;
      std::error_code error;
      for (const auto& entry : fs::directory_iterator(path_, error)) {
         struct stat st {};
         // A file gone between the listing and its stat is gone.
         if (::stat(entry.path().c_str(), &st) == 0) {
            present.emplace(entry.path().filename().string(), FileIdentity{st.st_dev, st.st_ino});
         }
      }
      return present;
   }

   std::string pathOf(const std::string& netns) const override { return (fs::path(path_) / netns).string(); }

 private:
   std::string path_;
};

class RtnlNamespaceSocket final : public NamespaceSocket {
 public:
   RtnlNamespaceSocket(const std::string& netnsPath, Linux::RtnlListener& listener, int receiveBuffer)
         : socket_(netnsPath, listener, receiveBuffer) {}

   FileIdentity identity() const override { return socket_.netnsIdentity(); }
   std::vector<int> fds() const override { return {socket_.eventFd(), socket_.dumpFd()}; }
   void dump() override { socket_.dump(); }
   bool dumping() const override { return socket_.dumping(); }
   void refreshSettings() override { socket_.refreshSettings(); }
   void receive() override { socket_.receive(); }
   std::uint64_t malformedCount() const override { return socket_.malformedCount(); }
   const Linux::RtnlSocket::Counters& counters() const override { return socket_.counters(); }

 private:
   Linux::RtnlSocket socket_;
};

class RtnlSocketFactory final : public SocketFactory {
 public:
   explicit RtnlSocketFactory(int receiveBuffer) : receiveBuffer_(receiveBuffer) {}

   std::unique_ptr<NamespaceSocket> open(const std::string& netnsPath,
                                         Linux::RtnlListener& listener) override {
      return std::make_unique<RtnlNamespaceSocket>(netnsPath, listener, receiveBuffer_);
   }

 private:
   int receiveBuffer_;
};

}  // namespace

std::unique_ptr<NetnsDirectory> netnsDirectoryAt(std::string path) {
   return std::make_unique<DirectoryOfNamespaces>(std::move(path));
}

std::unique_ptr<SocketFactory> rtnlSocketFactory(int receiveBuffer) {
   return std::make_unique<RtnlSocketFactory>(receiveBuffer);
}

}  // namespace App
