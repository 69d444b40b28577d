// Tells the service manager how the agent is doing, over the datagram socket
// it names in NOTIFY_SOCKET (systemd's notification protocol, sd_notify(3)):
// READY=1 once every VRF is ready after start, STATUS= lines as the agent's
// state changes (at most one a second), WATCHDOG=1 at half the interval
// WATCHDOG_USEC asks for, STOPPING=1 when it stops. Without NOTIFY_SOCKET it
// says nothing. A message the manager cannot take is dropped: it is only
// news of the agent's state, and the next one supersedes it.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/Fd.h"

namespace App {

class ServiceNotifier {
 public:
   // Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID from the environment.
   ServiceNotifier();

   void ready();
   // The agent's state in a line; sent when it changed, at most once a
   // second (held back until then). `now`: seconds on a monotonic clock.
   void statusIs(const std::string& text, double now);
   void stopping();
   // Seconds until a message is due (0 if one is): the watchdog's ping, or
   // a status held back; nothing if none will be.
   std::optional<double> secondsToNextMessage(double now) const;
   // Sends what is due.
   void tick(double now);

 private:
   void send(std::string_view message);

   Linux::Fd socket_;
   sockaddr_un address_{};
   socklen_t addressLength_ = 0;
   bool readySent_ = false;
   std::string status_;
   std::string pendingStatus_;
   double statusSentAt_ = -1e9;
   std::optional<double> watchdogInterval_;
   double lastPing_ = -1e9;
};

}  // namespace App
