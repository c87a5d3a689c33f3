#include "Desktop/Client/Routes.hpp"

#include <cstddef>
#include <utility>

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
namespace {

constexpr std::size_t maxRoutes = 100;

void append(std::deque<std::string>& routes, const std::string& route) {
  routes.push_back(route);
  if (routes.size() > maxRoutes) routes.pop_front();
}

}  // namespace

void Routes::add(const std::string& route) {
  if (watchers_.empty()) append(untaken_, route);
  for (auto* watcher : watchers_) {
    append(watcher->pending_, route);
    watcher->arrivals_.notify();
  }
}

Routes::Watcher::Watcher(Routes& routes, const asio::any_io_executor& executor)
    : routes_(routes), arrivals_(executor), pending_(std::exchange(routes.untaken_, {})) {
  routes_.watchers_.insert(this);
}

Routes::Watcher::~Watcher() {
  routes_.watchers_.erase(this);
  if (routes_.watchers_.empty()) routes_.untaken_ = std::move(pending_);
}

asio::awaitable<void> Routes::Watcher::wait() {
  while (pending_.empty()) co_await arrivals_.waitForMoreThan(arrivals_.count());
}

std::optional<std::string> Routes::Watcher::take() {
  if (pending_.empty()) return std::nullopt;
  auto route = std::move(pending_.front());
  pending_.pop_front();
  return route;
}

}  // namespace zephyl::sandbox::desktop
