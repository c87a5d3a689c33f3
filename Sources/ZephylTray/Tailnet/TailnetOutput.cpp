#include "ZephylTray/Tailnet/TailnetOutput.hpp"

#include <utility>

#include "System/Data/Text.hpp"
#include "ZephylTray/Tailnet/PreauthKey.hpp"
#include "ZephylTray/Tailnet/PublishedTailnet.hpp"
#include "ZephylTray/Tailnet/TailnetMarkers.hpp"

namespace zephyl {

TailnetOutput::TailnetOutput(PublishedTailnet& published, PreauthKey& key, Events events)
    : published_(published), key_(key), events_(std::move(events)) {}

void TailnetOutput::handle(const TailnetPair* pair, const OutputLines& output,
                           std::string_view tag) {
  for (const auto& received : output.lines()) {
    const std::string line = key_.redacted(received);
    published_.appendLine(logLineOf(line, tag));
    if (pair != nullptr) scrape(*pair, line);
  }
}

void TailnetOutput::scrape(const TailnetPair& pair, std::string_view line) {
  for (auto& announcement : findAnnouncements(line)) {
    if (announcement.marker == TailnetMarker::joined) key_.clear(pair.keyNumber());
    if (!pair.isEnded()) apply(std::move(announcement));
  }
}

void TailnetOutput::apply(TailnetAnnouncement announcement) {
  std::string& value = announcement.value;
  switch (announcement.marker) {
    case TailnetMarker::tunnel:
      return published_.change([&](TailnetState& state) {
        state.clearFailures();
        state.boundAddress = std::move(value);
      });
    case TailnetMarker::controlPlane:
      return published_.change([&](TailnetState& state) { state.activeRelay = std::move(value); });
    case TailnetMarker::targetResolved:
      published_.change([](TailnetState& state) { state.unresolvedTarget.reset(); });
      return storeUnlessBlank(&Discoveries::address, std::move(value));
    case TailnetMarker::serverName:
      return storeUnlessBlank(&Discoveries::name, std::move(value));
    case TailnetMarker::serverAccent:
      return storeUnlessBlank(&Discoveries::accent, std::move(value));
    case TailnetMarker::targetUnresolved:
      published_.change([&](TailnetState& state) { state.unresolvedTarget = value; });
      return store(&Discoveries::unresolvedTarget, std::move(value));
    case TailnetMarker::joined:
      return published_.change([](TailnetState& state) { state.lastEnrolError.reset(); });
    case TailnetMarker::enrolmentFailed:
      published_.change([&](TailnetState& state) { state.lastEnrolError = std::move(value); });
      return events_.enrolmentFailed();
  }
}

/// The registry ignores a blank value, so it must not replace another one that waits.
void TailnetOutput::storeUnlessBlank(std::optional<std::string> Discoveries::*kind,
                                     std::string value) {
  if (!isBlank(value)) store(kind, std::move(value));
}

void TailnetOutput::store(std::optional<std::string> Discoveries::*kind, std::string value) {
  bool isFirst = false;
  {
    const std::scoped_lock lock(mutex_);
    isFirst = !discoveries_;
    if (isFirst) discoveries_.emplace();
    *discoveries_.*kind = std::move(value);
  }
  if (isFirst) events_.discovered();
}

TailnetOutput::Discoveries TailnetOutput::extractDiscoveries() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(discoveries_, std::nullopt).value_or(Discoveries());
}

}  // namespace zephyl
