#include "platform/vok/Time.h"

#include <chrono>

namespace Vok {

Seconds MonotonicTimeSource::now() {
   using namespace std::chrono;
   return duration<Seconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace Vok
