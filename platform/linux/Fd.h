// Owns one file descriptor: closed with its owner, never copied.
#pragma once

#include <unistd.h>

namespace Linux {

struct Fd {
   explicit Fd(int fd = -1) : fd(fd) {}
   ~Fd() {
      if (fd >= 0) {
         ::close(fd);
      }
   }
   Fd(const Fd&) = delete;
   Fd& operator=(const Fd&) = delete;
   int fd;
};

}  // namespace Linux
