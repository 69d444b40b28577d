// An example of the reader library: prints the routes of a connroute table
// directory, a line each ("VRF FAMILY PREFIX type T viaSet V"); with
// --follow, then every change until interrupted.
//
//   make PKG_CONFIG_PATH=/usr/local/lib/pkgconfig
//   ./connroute-routes /dev/shm/connroute [--follow]
#include <connroute/reader.h>

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

namespace {

void print(const std::string& vrf, int family, const connroute::Route& route) {
   std::cout << vrf << " ipv" << family << ' ' << route.prefix << " type " << route.type << " viaSet "
             << route.viaSet << '\n';
}

int printRoutes(const std::string& dir) {
   connroute::Tables tables(dir);
   for (const connroute::Vrf& vrf : tables.vrfs()) {
      for (int family : {4, 6}) {
         for (const connroute::Route& route : tables.routes(vrf.id, family)) {
            print(vrf.name.empty() ? std::to_string(vrf.id) : vrf.name, family, route);
         }
      }
   }
   return 0;
}

int followRoutes(const std::string& dir) {
   sigset_t stop;
   sigemptyset(&stop);
   sigaddset(&stop, SIGINT);
   sigaddset(&stop, SIGTERM);
   sigprocmask(SIG_BLOCK, &stop, nullptr);
   const int stopFd = signalfd(-1, &stop, SFD_CLOEXEC);
   connroute::follow(
         dir, {},
         [](const connroute::Change& change) {
            std::cout << change.turn << ' ' << connroute::toString(change.kind);
            if (change.vrfId) {
               std::cout << " vrf " << *change.vrfId << " ipv" << change.family << ' ' << change.route.prefix;
            }
            std::cout << '\n';
         },
         stopFd, [] { std::cout.flush(); });
   close(stopFd);
   return 0;
}

}  // namespace

int main(int argc, char** argv) {
   if (argc < 2 || (argc == 3 && std::strcmp(argv[2], "--follow") != 0) || argc > 3) {
      std::cerr << "usage: connroute-routes DIR [--follow]\n";
      return 2;
   }
   try {
      return argc == 3 ? followRoutes(argv[1]) : printRoutes(argv[1]);
   } catch (const connroute::Error& e) {
      std::cerr << "connroute-routes: " << e.what() << '\n';
      return 2;
   }
}
