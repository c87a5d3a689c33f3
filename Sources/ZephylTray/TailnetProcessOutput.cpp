#include "System/Secret.hpp"
#include "ZephylTray/Servers.hpp"
#include "ZephylTray/TailnetMarkers.hpp"
#include "ZephylTray/TailnetProcess.hpp"

namespace zephyl {

void TailnetProcess::read(const OutputLines& output, const std::string& tag) {
  for (const auto& line : output.lines()) {
    appendLog(logLineOf(line, tag));
    for (auto& announcement : findAnnouncements(line)) take(std::move(announcement));
  }
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
      return forgetPreauthKey();
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

/// The key can be used once only.
void TailnetProcess::forgetPreauthKey() {
  if (pendingPreauthKey_) wipe(*pendingPreauthKey_);
  pendingPreauthKey_.reset();
  publish([this] { state_.lastEnrolError.reset(); });
}

void TailnetProcess::failEnrolment(std::string reason) {
  publish([&] { state_.lastEnrolError = std::move(reason); });
  stopRequested_ = true;
  ++attempts_;
  stopLocked(runtime_.clock.now() + terminationGrace);
  reportStateChange();
}

}  // namespace zephyl
