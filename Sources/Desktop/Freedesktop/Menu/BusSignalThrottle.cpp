#include "Desktop/Freedesktop/Menu/BusSignalThrottle.hpp"

#include <algorithm>
#include <utility>

namespace zephyl {

std::size_t BusSignalThrottle::add(Source source) {
  sources_.push_back({std::move(source)});
  return sources_.size() - 1;
}

void BusSignalThrottle::request(std::size_t source) {
  if (std::exchange(sources_[source].requested, true)) return;
  queue_.push_back(source);
  sendPermitted();
}

void BusSignalThrottle::sendNow(std::size_t source) {
  send(sources_[source], clock_.now());
}

void BusSignalThrottle::send(Waiting& waiting, Instant now) {
  const std::size_t count = waiting.source.send();
  if (count > 0) waiting.earliest = now + waiting.source.interval;
  sent_.insert(sent_.end(), count, now);
  while (sent_.size() > perWindow) sent_.pop_front();
}

Instant BusSignalThrottle::earliestFor(std::size_t count) const {
  if (sent_.size() + count <= perWindow) return {};
  return sent_[sent_.size() + count - perWindow - 1] + window;
}

void BusSignalThrottle::sendPermitted() {
  const Instant now = clock_.now();
  auto next = Instant::max();
  Instant blockedUntil{};  // a source that waits for capacity blocks those queued behind it
  std::deque<std::size_t> later;
  for (const std::size_t number : std::exchange(queue_, {})) {
    Waiting& waiting = sources_[number];
    const Instant room = std::max(blockedUntil, earliestFor(waiting.source.maxSignals));
    const Instant due = std::max(room, waiting.earliest);
    if (due > now) {
      if (room > now) blockedUntil = room;
      next = std::min(next, due);
      later.push_back(number);
      continue;
    }
    waiting.requested = false;
    send(waiting, now);
  }
  queue_ = std::move(later);
  timer_.cancel();
  if (!queue_.empty()) {
    timer_ = later_(std::max(next - now, Duration::zero()), [this] { sendPermitted(); });
  }
}

}  // namespace zephyl
