#include "ZephylTray/Tailnet/TailnetMarkers.hpp"

#include <array>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

struct Phrase {
  TailnetMarker marker;
  std::string_view text;
};

constexpr std::array<Phrase, 8> phrases{{
    {TailnetMarker::tunnel, "data tunnel on "},
    {TailnetMarker::controlPlane, "verified control plane via "},
    {TailnetMarker::targetResolved, "target resolved to "},
    {TailnetMarker::serverName, "server name: "},
    {TailnetMarker::serverAccent, "server accent: "},
    {TailnetMarker::targetUnresolved, "TARGET UNRESOLVED: "},
    {TailnetMarker::joined, "joined the tailnet"},
    {TailnetMarker::enrolmentFailed, "ENROLMENT FAILED: "},
}};

constexpr std::string_view cutAfter = "found Zephyl";

void dropPrefix(std::string_view& text, std::string_view prefix) {
  if (text.starts_with(prefix)) text.remove_prefix(prefix.size());
}

}  // namespace

std::vector<TailnetAnnouncement> findAnnouncements(std::string_view line) {
  std::vector<TailnetAnnouncement> found;
  for (const auto& phrase : phrases) {
    const auto at = line.find(phrase.text);
    if (at == std::string_view::npos) continue;
    const std::string rest = withoutControlCharacters(line.substr(at + phrase.text.size()));
    std::string_view value = trimmed(rest);
    if (phrase.marker == TailnetMarker::tunnel) {
      dropPrefix(value, "http://");
      dropPrefix(value, "https://");
    }
    found.push_back({phrase.marker, std::string(value)});
  }
  return found;
}

std::string logLineOf(std::string_view line, std::string_view tag) {
  const auto at = line.find(cutAfter);
  return formatText("[{}] {}", tag,
                    at == std::string_view::npos ? line : line.substr(0, at + cutAfter.size()));
}

}  // namespace zephyl
