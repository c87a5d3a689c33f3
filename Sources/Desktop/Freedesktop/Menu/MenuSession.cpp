#include "Desktop/Freedesktop/Menu/MenuSession.hpp"

#include <utility>

namespace zephyl {

MenuSession::Events MenuSession::aboutToShowRoot(std::string_view host, Instant now) {
  if (open_ && rootOpened_ && now - *rootOpened_ <= sameOpening) return {};
  // If it is still open, the host did not report that it was closed.
  return reopen(host, now);
}

MenuSession::Events MenuSession::opened(std::string_view host, bool root, Instant now) {
  if (!root) return open({}, host, now);
  // A host may have announced the root when it connected, or not have said that it was closed.
  const bool isAnother = open_ && rootCalled_ && now - *rootCalled_ > sameOpening;
  auto events = isAnother ? reopen(host, now) : open({}, host, now);
  rootCalled_ = rootOpened_ = now;
  return events;
}

MenuSession::Events MenuSession::closedRoot(std::string_view host) {
  if (!closingHosts_.contains(host)) {
    if (closingHosts_.size() == maxRememberedHosts) closingHosts_.clear();
    closingHosts_.emplace(host);
  }
  return close();
}

MenuSession::Events MenuSession::expire(Instant now) {
  const auto limit = deadline();
  if (!limit || now < *limit) return {};
  return close();
}

std::optional<Instant> MenuSession::deadline() const {
  if (!open_ || closingHosts_.contains(host_)) return std::nullopt;
  return lastCall_ + silenceTimeout;
}

MenuSession::Events MenuSession::reopen(std::string_view host, Instant now) {
  auto events = close();
  events.push_back(Event::needsUpdate);
  rootCalled_ = now;
  return open(std::move(events), host, now);
}

MenuSession::Events MenuSession::open(Events before, std::string_view host, Instant now) {
  called(now);
  host_ = host;
  if (!std::exchange(open_, true)) before.push_back(Event::willOpen);
  return before;
}

MenuSession::Events MenuSession::close() {
  rootOpened_.reset();
  rootCalled_.reset();
  host_.clear();
  if (!std::exchange(open_, false)) return {};
  return {Event::didClose};
}

}  // namespace zephyl
