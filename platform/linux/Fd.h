// Owns one file descriptor: closed with its owner, moved but never copied.
#pragma once

#include <unistd.h>

#include <utility>

namespace Linux {

struct Fd {
   explicit Fd(int fd = -1) : fd(fd) {}
   ~Fd() { close(); }
   Fd(const Fd&) = delete;
   Fd& operator=(const Fd&) = delete;
   Fd(Fd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
   Fd& operator=(Fd&& other) noexcept {
      if (this != &other) {
         close();
         fd = std::exchange(other.fd, -1);
      }
      return *this;
   }
   void close() {
      if (fd >= 0) {
         ::close(std::exchange(fd, -1));
      }
   }
   int fd;
};

}  // namespace Linux
