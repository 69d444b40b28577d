// Rows as JSON, as the dumps and `connroute show --json` print them.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "app/Dump.h"

namespace App {

// One line of JSON. Names from the command line need not be UTF-8: such
// bytes print as U+FFFD rather than failing the output.
inline std::string jsonText(const nlohmann::json& value) {
   return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

template <class T>
std::string jsonScalar(const T& value) {
   return jsonText(nlohmann::json(value));
}

inline std::string jsonFlag(const std::optional<bool>& value) {
   return value ? jsonScalar(*value) : "null";
}

inline nlohmann::json routeJson(const RouteRow& r) {
   return {{"prefix", r.prefix},         {"type", r.type},         {"viaSet", r.viaSet},
           {"owner", r.owner},           {"protocol", r.protocol}, {"metric", r.metric},
           {"preference", r.preference}, {"fecIndex", r.fecIndex}, {"flags", r.flags}};
}

inline nlohmann::json viaJson(const ViaRow& v) {
   return {{"via", v.key}, {"nexthop", v.nexthop}, {"intf", v.intf}, {"flags", v.flags},
           {"kind", v.kind}};
}

inline nlohmann::json viaSetJson(const ViaSetRow& v) {
   return {{"key", v.key}, {"kind", v.kind}, {"via", v.via}, {"protocol", v.protocol},
           {"vias", v.vias}};
}

}  // namespace App
