#include <string_view>
#include <utility>

#include "ZephylTray/Registry/InviteKey.hpp"
#include "ZephylTray/Registry/Servers.hpp"
#include "ZephylTray/Tailnet/TailnetMarkers.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {

namespace {

constexpr std::string_view redaction = "[redacted]";

/// Shorter texts are not secrets and would match ordinary words.
constexpr std::size_t minSecretLength = 8;

void redact(std::string& line, std::string_view secret) {
  if (secret.size() < minSecretLength) return;
  for (auto at = line.find(secret); at != std::string::npos;
       at = line.find(secret, at + redaction.size())) {
    line.replace(at, secret.size(), redaction);
  }
}

}  // namespace

void TailnetProcess::appendLog(const SharedPair& pair, const OutputLines& output,
                               const std::string& tag) {
  for (const auto& received : output.lines()) {
    const std::string line = withoutPreauthKey(received);
    appendLine(logLineOf(line, tag));
    if (pair) scrape(*pair, line);
  }
}

/// Also removes the key without the prefix that all keys have in common.
std::string TailnetProcess::withoutPreauthKey(const std::string& line) const {
  std::string rest = line;
  if (!pendingPreauthKey_) return rest;
  std::string_view key = *pendingPreauthKey_;
  redact(rest, key);
  if (key.starts_with(InviteKey::preauthPrefix)) {
    key.remove_prefix(InviteKey::preauthPrefix.size());
    redact(rest, key);
  }
  return rest;
}

/// An ending pair can only report that it has used the key.
void TailnetProcess::scrape(const TailnetPair& pair, std::string_view line) {
  for (auto& announcement : findAnnouncements(line)) {
    if (announcement.marker == TailnetMarker::joined && pair.keyNumber() == keyNumber_) {
      pendingPreauthKey_.reset();
    }
    if (!pair.isEnded()) handle(std::move(announcement));
  }
}

void TailnetProcess::handle(TailnetAnnouncement announcement) {
  std::string& value = announcement.value;
  switch (announcement.marker) {
    case TailnetMarker::tunnel:
      clearFailures();
      return publish([&] { visible_.state.boundAddress = std::move(value); });
    case TailnetMarker::controlPlane:
      return publish([&] { visible_.state.activeRelay = std::move(value); });
    case TailnetMarker::targetResolved:
      publish([this] { visible_.state.unresolvedTarget.reset(); });
      return storeDiscovery(&Discoveries::address, std::move(value));
    case TailnetMarker::serverName:
      return storeDiscovery(&Discoveries::name, std::move(value));
    case TailnetMarker::serverAccent:
      return storeDiscovery(&Discoveries::accent, std::move(value));
    case TailnetMarker::targetUnresolved:
      publish([&] { visible_.state.unresolvedTarget = value; });
      return storeDiscovery(&Discoveries::unresolvedTarget, std::move(value));
    case TailnetMarker::joined:
      return publish([this] { visible_.state.lastEnrolError.reset(); });
    case TailnetMarker::enrolmentFailed:
      return failEnrolment(std::move(value));
  }
}

/// Keeps the newest value of each kind for the main thread.
void TailnetProcess::storeDiscovery(std::optional<std::string> Discoveries::*kind,
                                    std::string value) {
  bool isFirst = false;
  publish([&] {
    isFirst = !visible_.discoveries;
    if (isFirst) visible_.discoveries.emplace();
    *visible_.discoveries.*kind = std::move(value);
  });
  if (isFirst) onMain([](TailnetProcess& self) { self.recordDiscoveries(); });
}

/// Runs on the main thread, where the registry is changed.
void TailnetProcess::recordDiscoveries() {
  std::optional<Discoveries> found;
  publish([&] { found = std::exchange(visible_.discoveries, std::nullopt); });
  if (found->address) {
    const bool changed = Servers::recordDiscoveredAddress(server_.id, *found->address);
    if (changed && onAddressLearned) onAddressLearned();
  }
  if (found->name) Servers::recordDiscoveredName(server_.id, *found->name);
  if (found->accent) Servers::recordDiscoveredAccent(server_.id, *found->accent);
  if (found->unresolvedTarget && onTargetUnresolved) onTargetUnresolved(*found->unresolvedTarget);
  if (onStateChange) onStateChange();
}

void TailnetProcess::failEnrolment(std::string reason) {
  publish([&] { visible_.state.lastEnrolError = std::move(reason); });
  cancelStarts();
  endPair(nullptr);
  reportStateChange();
}

}  // namespace zephyl
