#include "app/live/ServiceNotifier.h"

#include <unistd.h>

#include <cstddef>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace App {

namespace {

// The interval the manager asks for, for this very process: WATCHDOG_PID,
// when set, names the process meant (a child must not answer for it).
std::optional<double> watchdogIntervalFromEnvironment() {
   const char* usec = std::getenv("WATCHDOG_USEC");
   if (!usec) {
      return std::nullopt;
   }
   if (const char* pid = std::getenv("WATCHDOG_PID"); pid && std::strtol(pid, nullptr, 10) != ::getpid()) {
      return std::nullopt;
   }
   const double seconds = std::strtod(usec, nullptr) / 1e6;
   return seconds > 0 ? std::optional<double>(seconds / 2) : std::nullopt;
}

}  // namespace

ServiceNotifier::ServiceNotifier() : watchdogInterval_(watchdogIntervalFromEnvironment()) {
   const char* path = std::getenv("NOTIFY_SOCKET");
   if (!path || !*path || std::strlen(path) >= sizeof(address_.sun_path)) {
      watchdogInterval_.reset();  // nobody to tell
      return;
   }
   address_.sun_family = AF_UNIX;
   std::memcpy(address_.sun_path, path, std::strlen(path));
   if (path[0] == '@') {
      address_.sun_path[0] = '\0';  // an abstract socket
   }
   addressLength_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
   socket_.fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

void ServiceNotifier::send(std::string_view message) {
   if (socket_.fd < 0) {
      return;
   }
   ::sendto(socket_.fd, message.data(), message.size(), MSG_NOSIGNAL,
            reinterpret_cast<const sockaddr*>(&address_), addressLength_);
}

void ServiceNotifier::ready() {
   if (!readySent_) {
      readySent_ = true;
      send("READY=1");
   }
}

void ServiceNotifier::statusIs(const std::string& text, double now) {
   pendingStatus_ = text;
   tick(now);
}

void ServiceNotifier::stopping() {
   if (pendingStatus_ != status_) {
      status_ = pendingStatus_;
      send("STATUS=" + status_);  // the last word on the agent's state
   }
   send("STOPPING=1");
}

std::optional<double> ServiceNotifier::secondsToNextMessage(double now) const {
   std::optional<double> due;
   if (socket_.fd >= 0 && pendingStatus_ != status_) {
      due = statusSentAt_ + 1.0 - now;
   }
   if (watchdogInterval_) {
      const double ping = lastPing_ + *watchdogInterval_ - now;
      due = due ? std::min(*due, ping) : ping;
   }
   return due ? std::optional<double>(std::max(*due, 0.0)) : std::nullopt;
}

void ServiceNotifier::tick(double now) {
   if (pendingStatus_ != status_ && now - statusSentAt_ >= 1.0) {
      status_ = pendingStatus_;
      statusSentAt_ = now;
      send("STATUS=" + status_);
   }
   if (watchdogInterval_ && now - lastPing_ >= *watchdogInterval_) {
      lastPing_ = now;
      send("WATCHDOG=1");
   }
}

}  // namespace App
