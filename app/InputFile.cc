#include "app/InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "app/Scenario.h"
#include "platform/linux/Fd.h"

namespace App {

std::string readInputFile(const std::string& path, std::size_t limit) {
   // O_NONBLOCK: opening a FIFO must not wait for a writer before it is refused.
   const Linux::Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
   const int fd = file.fd;
   if (fd < 0) {
      const int error = errno;  // before anything else may set it
      throw ScenarioError(path + ": cannot read the file: " + std::strerror(error));
   }
   struct stat info {};
   if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
      throw ScenarioError(path + ": not a regular file");
   }
   if (static_cast<std::size_t>(info.st_size) > limit) {
      throw ScenarioError(path + ": too large (" + std::to_string(info.st_size) +
                          " bytes; at most " + std::to_string(limit) + ")");
   }
   std::string data;
   data.resize(static_cast<std::size_t>(info.st_size));
   std::size_t done = 0;
   while (done < data.size()) {
      const ssize_t n = ::read(fd, data.data() + done, data.size() - done);
      if (n < 0 && errno == EINTR) {
         continue;
      }
      if (n < 0) {
         const int error = errno;
         throw ScenarioError(path + ": cannot read the file: " + std::strerror(error));
      }
      if (n == 0) {
         break;  // the file shrank while read
      }
      done += static_cast<std::size_t>(n);
   }
   data.resize(done);
   return data;
}

}  // namespace App
