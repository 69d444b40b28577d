// The reader library: the program's own read side (app/read) behind a
// header that names none of its types.
#include "connroute/reader.h"

#include "app/read/TableFollower.h"
#include "app/read/TableReader.h"

namespace connroute {

namespace Rib = Routing::Rib;

namespace {

// Runs `read`, raising what it throws as connroute::Error.
template <class Read>
auto translated(Read read) -> decltype(read()) {
   try {
      return read();
   } catch (const Error&) {
      throw;
   } catch (const std::exception& e) {
      throw Error(e.what());
   }
}

Route route(const Rib::Route& r) {
   return Route{r.prefix.toString(),
                static_cast<unsigned>(r.routeType),
                r.viaSetKey.value(),
                static_cast<std::uint32_t>(r.routingProtocol),
                r.metricPref.metric,
                r.metricPref.preference,
                r.fecIndex,
                r.flags};
}

template <class From, class To, class Convert>
std::vector<To> converted(const std::vector<From>& rows, Convert convert) {
   std::vector<To> out;
   out.reserve(rows.size());
   for (const From& row : rows) {
      out.push_back(convert(row));
   }
   return out;
}

}  // namespace

struct Tables::Impl {
   explicit Impl(const std::string& dir) : reader(dir) {}
   App::TableReader reader;
};

Tables::Tables(const std::string& dir)
      : impl_(translated([&] { return std::make_unique<Impl>(dir); })) {}
Tables::~Tables() = default;
Tables::Tables(Tables&&) noexcept = default;
Tables& Tables::operator=(Tables&&) noexcept = default;

void Tables::refresh() {
   translated([&] { impl_->reader.refresh(); });
}

std::uint64_t Tables::turn() const {
   return translated([&] { return impl_->reader.feed().seq; });
}

std::vector<Vrf> Tables::vrfs() const {
   return translated([&] {
      std::vector<Vrf> vrfs;
      for (const auto& [id, vrf] : impl_->reader.vrfs()) {
         Vrf out{id, vrf.name, vrf.status.has_value()};
         if (vrf.status) {
            out.v4Ready = vrf.status->v4Ready;
            out.v6Ready = vrf.status->v6Ready;
            out.protocolReady = vrf.status->protoReady;
            out.backlog = vrf.status->backlog;
            out.drainSlices = vrf.status->drains;
            out.longestSliceSeconds = vrf.status->longestSlice;
         }
         vrfs.push_back(std::move(out));
      }
      return vrfs;
   });
}

std::vector<Route> Tables::routes(std::uint32_t vrfId, int family) const {
   return translated(
         [&] { return converted<Rib::Route, Route>(impl_->reader.routes(vrfId, family), route); });
}

std::vector<Via> Tables::vias(std::uint32_t vrfId, int family) const {
   return translated([&] {
      return converted<Rib::Via, Via>(impl_->reader.vias(vrfId, family), [](const Rib::Via& v) {
         return Via{v.key.toString(), v.nexthop.toString(), std::string(v.intfId.name()), v.flags, v.kind};
      });
   });
}

std::vector<ViaSet> Tables::viaSets() const {
   return translated([&] {
      return converted<Rib::Plim::ViaSet, ViaSet>(impl_->reader.viaSets(), [](const Rib::Plim::ViaSet& v) {
         return ViaSet{v.key.value(), static_cast<unsigned>(v.kind), v.via.viaKey.toString(),
                       static_cast<std::uint32_t>(v.via.rp), v.viaCount};
      });
   });
}

std::optional<Candidates> Tables::candidates(std::uint32_t vrfId, const std::string& prefix) const {
   return translated([&]() -> std::optional<Candidates> {
      Ovel::IpGenPrefix parsed;
      try {
         parsed = Ovel::IpGenPrefix::parse(prefix);
      } catch (const std::exception& e) {
         throw Error("'" + prefix + "' is not a prefix: " + e.what());
      }
      const auto found = impl_->reader.candidates(vrfId, parsed);
      if (!found) {
         return std::nullopt;
      }
      Candidates out{found->installedOwner, {}};
      for (const App::CandidateRow& row : found->rows) {
         out.candidates.push_back(Candidate{row.intf, row.address, row.type, row.viaSet});
      }
      return out;
   });
}

static_assert(static_cast<int>(Change::Kind::resync) == static_cast<int>(App::FollowEvent::Kind::resync) &&
                    static_cast<int>(Change::Kind::removed) ==
                          static_cast<int>(App::FollowEvent::Kind::removed),
              "the public kinds are the follower's, in its order");

const char* toString(Change::Kind kind) {
   return App::toString(static_cast<App::FollowEvent::Kind>(kind)).data();
}

void follow(const std::string& dir, const FollowOptions& options,
            const std::function<void(const Change&)>& onChange, int stopFd,
            const std::function<void()>& batchDone) {
   translated([&] {
      App::TableFollower follower(dir, App::FollowFilter{options.vrf, options.family, options.from});
      if (options.vrf && !vrfNamed(follower.vrfs(), *options.vrf)) {
         throw Error("no VRF '" + *options.vrf + "' in " + dir);
      }
      follower.run(
            [&](const App::FollowEvent& event) {
               onChange(Change{static_cast<Change::Kind>(event.kind), event.seq, event.vrfId,
                               event.family, route(event.route), event.count, event.why});
            },
            stopFd, batchDone);
   });
}

}  // namespace connroute
