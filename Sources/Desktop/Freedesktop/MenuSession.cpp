#include "Desktop/Freedesktop/MenuSession.hpp"

#include <utility>

namespace zephyl {

MenuSession::Events MenuSession::aboutToShowRoot(Instant now) {
  if (open_ && rootOpened_ && now - *rootOpened_ <= sameOpening) return {};
  // Still open: then nobody has said that it was closed.
  auto events = close();
  events.push_back(Event::needsUpdate);
  return open(std::move(events), now);
}

MenuSession::Events MenuSession::opened(bool root, Instant now) {
  if (root) rootOpened_ = now;
  return open({}, now);
}

MenuSession::Events MenuSession::closedRoot() {
  return close();
}

MenuSession::Events MenuSession::expire(Instant now) {
  if (!open_ || now - lastCall_ < silenceLimit) return {};
  return close();
}

std::optional<Instant> MenuSession::deadline() const {
  if (!open_) return std::nullopt;
  return lastCall_ + silenceLimit;
}

MenuSession::Events MenuSession::open(Events before, Instant now) {
  called(now);
  if (!std::exchange(open_, true)) before.push_back(Event::willOpen);
  return before;
}

MenuSession::Events MenuSession::close() {
  rootOpened_.reset();
  if (!std::exchange(open_, false)) return {};
  return {Event::didClose};
}

}  // namespace zephyl
