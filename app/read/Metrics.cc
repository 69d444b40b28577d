#include "app/read/Metrics.h"

#include <cstdio>

#include "app/read/TableReader.h"

namespace App {

Metrics metricsOf(const TableReader& reader) {
   Metrics metrics;
   for (const auto& [id, vrf] : reader.vrfs()) {
      metrics.vrfs.push_back(Metrics::Vrf{id, vrf.name, reader.routeCount(id, 4), reader.routeCount(id, 6),
                                          reader.viaCount(id, 4), reader.viaCount(id, 6), vrf.status});
   }
   metrics.agent = reader.agent();
   const Plim::Feed feed = reader.feed();
   metrics.turns = feed.seq;
   if (feed.committedAt != 0) {
      metrics.lastCommit = static_cast<double>(feed.committedAt) / 1e9;
   }
   metrics.namespaces = reader.namespaceCounters();
   return metrics;
}

namespace {

// A label value with the escapes the exposition format asks for.
std::string labelValue(std::string_view text) {
   std::string escaped;
   for (char c : text) {
      if (c == '\\' || c == '"') {
         escaped += '\\';
         escaped += c;
      } else if (c == '\n') {
         escaped += "\\n";
      } else {
         escaped += c;
      }
   }
   return escaped;
}

// Counts print as integers, times with microseconds kept.
std::string number(double value) {
   char text[40];
   std::snprintf(text, sizeof text, "%.15g", value);
   return text;
}

// One metric family: its HELP and TYPE lines, then its samples.
class Family {
 public:
   Family(std::ostream& out, const char* name, const char* type, const char* help) : out_(out), name_(name) {
      out_ << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
   }
   Family& sample(const std::string& labels, double value) {
      out_ << name_ << (labels.empty() ? "" : "{" + labels + "}") << ' ' << number(value) << '\n';
      return *this;
   }

 private:
   std::ostream& out_;
   const char* name_;
};

std::string vrfLabels(const Metrics::Vrf& vrf) {
   return "vrf=\"" + labelValue(vrf.name) + "\",vrf_id=\"" + std::to_string(vrf.id) + "\"";
}

void writeVrfs(const Metrics& metrics, std::ostream& out) {
   Family routes(out, "connroute_routes", "gauge", "Routes in a VRF's tables, per address family.");
   for (const Metrics::Vrf& vrf : metrics.vrfs) {
      routes.sample(vrfLabels(vrf) + ",family=\"ipv4\"", double(vrf.routes4));
      routes.sample(vrfLabels(vrf) + ",family=\"ipv6\"", double(vrf.routes6));
   }
   Family vias(out, "connroute_vias", "gauge", "Vias in a VRF's via tables, per address family.");
   for (const Metrics::Vrf& vrf : metrics.vrfs) {
      vias.sample(vrfLabels(vrf) + ",family=\"ipv4\"", double(vrf.vias4));
      vias.sample(vrfLabels(vrf) + ",family=\"ipv6\"", double(vrf.vias6));
   }
   auto served = [&](const char* name, const char* type, const char* help, auto value) {
      Family family(out, name, type, help);
      for (const Metrics::Vrf& vrf : metrics.vrfs) {
         if (vrf.status) {
            family.sample(vrfLabels(vrf), value(*vrf.status));
         }
      }
   };
   served("connroute_backlog_entries", "gauge", "Backlog entries a served VRF still has to drain.",
          [](const VrfStatusRow& s) { return double(s.backlog); });
   served("connroute_drain_slices_total", "counter", "Drain slices a served VRF has run.",
          [](const VrfStatusRow& s) { return double(s.drains); });
   served("connroute_drain_slice_longest_seconds", "gauge", "The longest drain slice of a served VRF.",
          [](const VrfStatusRow& s) { return s.longestSlice; });
   Family ready(out, "connroute_vrf_ready", "gauge",
                "1 once a served VRF's connected routes of a family are ready (absent without a "
                "readiness record).");
   for (const Metrics::Vrf& vrf : metrics.vrfs) {
      if (!vrf.status) {
         continue;
      }
      for (const auto& [family, flag] : {std::pair{"ipv4", vrf.status->v4Ready}, {"ipv6", vrf.status->v6Ready}}) {
         if (flag != "-") {
            ready.sample(vrfLabels(vrf) + ",family=\"" + family + "\"", flag == "yes");
         }
      }
   }
   Family protocol(out, "connroute_vrf_protocol_ready", "gauge",
                   "1 once the protocol's status of a served VRF says ready.");
   for (const Metrics::Vrf& vrf : metrics.vrfs) {
      if (vrf.status && vrf.status->protoReady != "-") {
         protocol.sample(vrfLabels(vrf), vrf.status->protoReady == "yes");
      }
   }
}

void writeAgent(const Metrics& metrics, std::ostream& out) {
   Family(out, "connroute_agent_running", "gauge", "1 while the agent runs.")
         .sample("", metrics.agent && metrics.agent->first == "running");
   if (metrics.agent) {
      Family(out, "connroute_agent_time_seconds", "gauge", "The agent's own clock.")
            .sample("", metrics.agent->second);
   }
   Family(out, "connroute_turns_committed_total", "counter", "Turns committed to the tables.")
         .sample("", double(metrics.turns));
   if (metrics.lastCommit) {
      Family(out, "connroute_last_commit_timestamp_seconds", "gauge",
             "When the latest turn was committed, in Unix time.")
            .sample("", *metrics.lastCommit);
   }
}

void writeNamespaces(const Metrics& metrics, std::ostream& out) {
   if (metrics.namespaces.empty()) {
      return;
   }
   auto each = [&](const char* name, const char* help, auto value) {
      Family family(out, name, "counter", help);
      for (const NamespaceCounters& ns : metrics.namespaces) {
         family.sample("netns=\"" + labelValue(ns.netns) + "\"", double(value(ns)));
      }
   };
   each("connroute_netlink_messages_total", "rtnetlink messages read from a namespace.",
        [](const NamespaceCounters& ns) { return ns.messages; });
   each("connroute_netlink_events_lost_total",
        "Times the kernel dropped a namespace's events (ENOBUFS).",
        [](const NamespaceCounters& ns) { return ns.eventsLost; });
   each("connroute_netlink_resyncs_total", "Times a namespace was read again after lost events.",
        [](const NamespaceCounters& ns) { return ns.resyncs; });
}

}  // namespace

void writePrometheus(const Metrics& metrics, std::ostream& out) {
   writeVrfs(metrics, out);
   writeAgent(metrics, out);
   writeNamespaces(metrics, out);
}

}  // namespace App
