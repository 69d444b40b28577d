// Rows as JSON, as the dumps and `connroute show --json` print them.
#pragma once

#include <algorithm>
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

// A row's line, whether built as an object or written directly.
inline std::string jsonLine(const nlohmann::json& value) { return jsonText(value); }
inline std::string jsonLine(std::string text) { return text; }

template <class T>
std::string jsonScalar(const T& value) {
   return jsonText(nlohmann::json(value));
}

inline std::string jsonFlag(const std::optional<bool>& value) {
   return value ? jsonScalar(*value) : "null";
}

// How every JSON output names a VRF: {"id": N, "name": NAME}, the name
// null when the VRF has none (no container of the agent serves it).
inline nlohmann::json vrfJson(const std::string& name, std::uint32_t id) {
   return {{"name", name.empty() ? nlohmann::json() : nlohmann::json(name)}, {"id", id}};
}

inline nlohmann::json routeJson(const RouteRow& r) {
   return {{"prefix", r.prefix},         {"type", r.type},         {"viaSet", r.viaSet},
           {"owner", r.owner},           {"protocol", r.protocol}, {"metric", r.metric},
           {"preference", r.preference}, {"fecIndex", r.fecIndex}, {"flags", r.flags}};
}

// A JSON string, written directly when it needs no escapes.
inline std::string jsonStringText(const std::string& text) {
   const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
      return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
   });
   return plain ? '"' + text + '"' : jsonScalar(text);
}

// routeJson(r) as one line of JSON, written directly: the same text,
// without building an object per row (a million rows are printed at once).
// Without the owner for rows that have none to tell (a followed change).
enum class WithOwner { yes, no };
inline std::string routeJsonTextOf(const RouteRow& r, WithOwner withOwner) {
   auto string = [](const std::string& text) { return jsonStringText(text); };
   std::string line;
   line.reserve(160);
   line += "{\"fecIndex\":" + std::to_string(r.fecIndex);
   line += ",\"flags\":" + std::to_string(r.flags);
   line += ",\"metric\":" + std::to_string(r.metric);
   if (withOwner == WithOwner::yes) {
      line += ",\"owner\":" + string(r.owner);
   }
   line += ",\"preference\":" + std::to_string(r.preference);
   line += ",\"prefix\":" + string(r.prefix);
   line += ",\"protocol\":" + std::to_string(r.protocol);
   line += ",\"type\":" + std::to_string(r.type);
   line += ",\"viaSet\":" + std::to_string(r.viaSet) + "}";
   return line;
}

inline std::string routeJsonText(const RouteRow& r) { return routeJsonTextOf(r, WithOwner::yes); }

inline nlohmann::json viaJson(const ViaRow& v) {
   return {{"via", v.key}, {"nexthop", v.nexthop}, {"intf", v.intf}, {"flags", v.flags},
           {"kind", v.kind}};
}

inline nlohmann::json viaSetJson(const ViaSetRow& v) {
   return {{"key", v.key}, {"kind", v.kind}, {"via", v.via}, {"protocol", v.protocol},
           {"vias", v.vias}};
}

}  // namespace App
