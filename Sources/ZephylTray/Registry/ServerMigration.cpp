#include "ZephylTray/Registry/ServerMigration.hpp"

#include <algorithm>

#include "System/Data/Text.hpp"

namespace zephyl::migration {

namespace {

constexpr std::string_view generatedLabel = "Zephyl";
constexpr std::string_view defaultHost = "zephyl";
constexpr std::string_view defaultPort = ":5173";

/// Returns a string of a JSON object, or nullopt if it is absent or not a string.
std::optional<std::string> text(const json::Object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

bool isArrayOfObjects(const json::Value& file) {
  return file.is_array() &&
         std::ranges::all_of(file.get_array(), [](const auto& value) { return value.is_object(); });
}

bool hasOldAddressing(const json::Value& value) {
  const auto& object = value.get_object();
  return !object.contains("address") &&
         (object.contains("serverHost") || object.contains("webTarget"));
}

/// Returns whether the entry that corresponds to the object gained an address.
bool foldInto(const json::Object& object, std::vector<ServerEntry>& entries) {
  const auto id = text(object, "id");
  if (!id) return false;
  const auto entry = std::ranges::find(entries, *id, &ServerEntry::id);
  if (entry == entries.end() || entry->address) return false;
  entry->address =
      legacyAddress(text(object, "serverHost").value_or(""), text(object, "webTarget"));
  return entry->address.has_value();
}

bool isGenerated(const ServerEntry& entry) {
  const auto label = trimmed(entry.label);
  if (label == generatedLabel) return true;
  const auto url = entry.addressURL();
  return url && label == url->authority();
}

}  // namespace

std::optional<std::string> legacyAddress(std::string_view host,
                                         const std::optional<std::string>& webTarget) {
  if (webTarget && !isBlank(*webTarget)) return std::string(trimmed(*webTarget));
  host = trimmed(host);
  if (host.empty()) return std::nullopt;
  const bool namesPort = host.find(':') != std::string_view::npos;
  return std::string("http://").append(host).append(namesPort ? "" : defaultPort);
}

std::optional<ServerEntry> singleServer(std::string id, std::string_view host,
                                        const std::optional<std::string>& fingerprint) {
  host = trimmed(host);
  const bool joined = fingerprint && !fingerprint->empty();
  if (!joined && (host.empty() || host == defaultHost)) return std::nullopt;
  ServerEntry entry;
  entry.id = std::move(id);
  entry.ordinal = 1;
  entry.address = legacyAddress(host, std::nullopt);
  entry.tailnetFingerprint = fingerprint;
  entry.ports = ServerPorts::ofSingleServer();
  entry.enabled = true;
  return entry;
}

bool foldAddressing(const json::Value& file, std::vector<ServerEntry>& entries) {
  if (!isArrayOfObjects(file)) return false;
  if (std::ranges::none_of(file.get_array(), hasOldAddressing)) return false;
  bool changed = false;
  for (const auto& value : file.get_array()) {
    changed = foldInto(value.get_object(), entries) || changed;
  }
  return changed;
}

bool reclaimNaming(std::vector<ServerEntry>& entries) {
  if (std::ranges::all_of(entries, [](const auto& entry) { return entry.ordinal.has_value(); })) {
    return false;
  }
  std::int64_t next = nextOrdinal(entries);
  for (auto& entry : entries) {
    if (!entry.ordinal) {
      entry.ordinal = next;
      next = ordinalAfter(next);
    }
    if (isGenerated(entry)) entry.label.clear();
  }
  return true;
}

}  // namespace zephyl::migration
