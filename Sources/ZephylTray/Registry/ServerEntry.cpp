#include "ZephylTray/Registry/ServerEntry.hpp"

#include <algorithm>
#include <limits>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

std::string_view trimmedOrEmpty(const std::optional<std::string>& text) {
  return text ? trimmed(*text) : std::string_view();
}

}  // namespace

bool ServerEntry::isJoined() const {
  return !tailnetFingerprint.value_or("").empty();
}

std::optional<URL> ServerEntry::addressURL() const {
  const auto text = trimmedOrEmpty(address);
  if (text.empty()) return std::nullopt;
  auto url = URL::parse(text);
  if (url && (url->scheme.empty() || url->host.empty())) url.reset();
  return url;
}

std::optional<std::string> ServerEntry::serverURL() const {
  const auto url = addressURL();
  if (!url) return std::nullopt;
  return formatText("{}://{}/agent", url->scheme == "https" ? "wss" : "ws", url->authority());
}

std::string ServerEntry::displayName() const {
  for (const auto name : {trimmed(label), trimmedOrEmpty(serverName)}) {
    if (!name.empty()) return std::string(name);
  }
  return formatText("Zephyl {}", ordinal.value_or(1));
}

bool ServerEntry::nameResolved() const {
  return !isBlank(label) || !trimmedOrEmpty(serverName).empty() || !trimmedOrEmpty(address).empty();
}

std::string ServerEntry::displayAccent() const {
  const auto own = trimmedOrEmpty(accent);
  return std::string(own.empty() ? trimmedOrEmpty(serverAccent) : own);
}

std::int64_t ordinalAfter(std::int64_t ordinal) {
  return ordinal == std::numeric_limits<std::int64_t>::max() ? ordinal : ordinal + 1;
}

std::int64_t nextOrdinal(const std::vector<ServerEntry>& entries) {
  std::optional<std::int64_t> largest;
  for (const auto& entry : entries) largest = std::max(largest, entry.ordinal);
  return largest ? ordinalAfter(*largest) : 1;
}

}  // namespace zephyl
