#include <string_view>
#include <utility>

#include "System/Data/Secret.hpp"
#include "ZephylTray/Registry/InviteKey.hpp"
#include "ZephylTray/Registry/Servers.hpp"
#include "ZephylTray/Tailnet/TailnetMarkers.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {

namespace {

constexpr std::string_view redaction = "[redacted]";

/// Anything shorter is no secret, and would be found in ordinary words.
constexpr std::size_t leastSecretLength = 8;

void strikeOut(std::string& line, std::string_view secret) {
  if (secret.size() < leastSecretLength) return;
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
    keepLine(logLineOf(line, tag));
    // A pair that does not exist any more has been ended.
    if (pair && !pair->isEnded()) scrape(line);
  }
}

/// Also without the part of the key that all keys begin with.
std::string TailnetProcess::withoutPreauthKey(const std::string& line) const {
  std::string rest = line;
  if (!pendingPreauthKey_) return rest;
  std::string_view key = *pendingPreauthKey_;
  strikeOut(rest, key);
  if (key.starts_with(InviteKey::preauthPrefix)) {
    key.remove_prefix(InviteKey::preauthPrefix.size());
    strikeOut(rest, key);
  }
  return rest;
}

void TailnetProcess::scrape(std::string_view line) {
  for (auto& announcement : findAnnouncements(line)) take(std::move(announcement));
}

void TailnetProcess::take(TailnetAnnouncement announcement) {
  std::string& value = announcement.value;
  switch (announcement.marker) {
    case TailnetMarker::tunnel:
      clearFailures();
      return publish([&] { state_.boundAddress = std::move(value); });
    case TailnetMarker::controlPlane:
      return publish([&] { state_.activeRelay = std::move(value); });
    case TailnetMarker::targetResolved:
      return learnAddress(std::move(value));
    case TailnetMarker::serverName:
      return learn(
          [value](TailnetProcess& self) { Servers::recordDiscoveredName(self.server_.id, value); });
    case TailnetMarker::serverAccent:
      return learn([value](TailnetProcess& self) {
        Servers::recordDiscoveredAccent(self.server_.id, value);
      });
    case TailnetMarker::targetUnresolved:
      publish([&] { state_.unresolvedTarget = value; });
      return learn([value](TailnetProcess& self) {
        if (self.onTargetUnresolved) self.onTargetUnresolved(value);
      });
    case TailnetMarker::joined:
      // The key can be used once only.
      forgetPreauthKey();
      return publish([this] { state_.lastEnrolError.reset(); });
    case TailnetMarker::enrolmentFailed:
      return failEnrolment(std::move(value));
  }
}

void TailnetProcess::learnAddress(std::string address) {
  publish([this] { state_.unresolvedTarget.reset(); });
  learn([address = std::move(address)](TailnetProcess& self) {
    const bool changed = Servers::recordDiscoveredAddress(self.server_.id, address);
    if (changed && self.onAddressLearned) self.onAddressLearned();
  });
}

/// The registry is changed from the main thread, and what is shown may be another after it.
void TailnetProcess::learn(std::function<void(TailnetProcess&)> work) {
  onMain([work = std::move(work)](TailnetProcess& self) {
    work(self);
    if (self.onStateChange) self.onStateChange();
  });
}

/// Copied, since what moves from one string to another may stay where it was.
void TailnetProcess::keepPreauthKey(std::string& preauthKey) {
  forgetPreauthKey();
  pendingPreauthKey_ = preauthKey;
  wipe(preauthKey);
}

void TailnetProcess::forgetPreauthKey() {
  if (pendingPreauthKey_) wipe(*pendingPreauthKey_);
  pendingPreauthKey_.reset();
}

void TailnetProcess::failEnrolment(std::string reason) {
  publish([&] { state_.lastEnrolError = std::move(reason); });
  forbidStarts();
  endPair(nullptr);
  reportStateChange();
}

}  // namespace zephyl
