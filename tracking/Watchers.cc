// Instantiates the family templates once, so that every user shares one
// copy of the gates and watchers.
#include "tracking/VrfIp6IntfStatusSm.h"
#include "tracking/VrfIpIntfStatusSm.h"

namespace Routing::ConnectedRoute {

template class IntfStatusGateSm<Ipv4Gate>;
template class IntfStatusGateSm<Ipv6Gate>;
template class VrfIntfStatusWatcherSm<Ipv4Watch>;
template class VrfIntfStatusWatcherSm<Ipv6Watch>;

}  // namespace Routing::ConnectedRoute
