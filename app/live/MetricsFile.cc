#include "app/live/MetricsFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace App {

MetricsFile::MetricsFile(std::string path, double interval) : path_(std::move(path)), interval_(interval) {}

std::optional<double> MetricsFile::secondsToNextWrite(double now) const {
   if (path_.empty()) {
      return std::nullopt;
   }
   return std::max(next_ - now, 0.0);
}

void MetricsFile::writeIfDue(double now, const std::function<std::string()>& text) {
   if (path_.empty() || now < next_) {
      return;
   }
   next_ = now + interval_;
   write(text());
}

void MetricsFile::write(const std::string& text) {
   if (path_.empty()) {
      return;
   }
   // Beside the file, so that the rename stays within one file system.
   const std::string temporary = path_ + ".tmp." + std::to_string(::getpid());
   std::string error;
   if (std::FILE* file = std::fopen(temporary.c_str(), "w")) {
      const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
      const int writeErrno = errno;
      if (std::fclose(file) != 0 || !written) {
         error = std::strerror(written ? errno : writeErrno);
      } else if (std::rename(temporary.c_str(), path_.c_str()) != 0) {
         error = std::strerror(errno);
      }
      if (!error.empty()) {
         std::remove(temporary.c_str());
      }
   } else {
      error = std::strerror(errno);
   }
   if (error.empty() && !error_.empty()) {
      std::cerr << "connroute: metrics file " << path_ << ": written again\n";
   } else if (!error.empty() && error != error_) {
      std::cerr << "connroute: metrics file " << path_ << ": cannot write: " << error << '\n';
   }
   error_ = error;
}

}  // namespace App
