#include "Desktop/Window/Routes.hpp"

#include <utility>

#include "Common/Async.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
namespace {

constexpr std::size_t mostUnseen = 100;

void append(std::deque<std::string>& routes, const std::string& route) {
  routes.push_back(route);
  if (routes.size() > mostUnseen) routes.pop_front();
}

}  // namespace

void Routes::remember(const std::string& route) {
  if (watchers_.empty()) append(unseen_, route);
  for (auto* watcher : watchers_) {
    append(watcher->routesToTake_, route);
    watcher->arrival_.cancel();
  }
}

Routes::Watcher::Watcher(Routes& routes, const asio::any_io_executor& executor)
    : routes_(routes), arrival_(executor), routesToTake_(std::exchange(routes.unseen_, {})) {
  routes_.watchers_.insert(this);
}

Routes::Watcher::~Watcher() {
  routes_.watchers_.erase(this);
  if (routes_.watchers_.empty()) routes_.unseen_ = std::move(routesToTake_);
}

asio::awaitable<void> Routes::Watcher::wait() {
  using Time = asio::steady_timer::time_point;
  arrival_.expires_at(routesToTake_.empty() ? Time::max() : Time::min());
  co_await arrival_.async_wait(asTuple);
}

std::optional<std::string> Routes::Watcher::take() {
  if (routesToTake_.empty()) return std::nullopt;
  auto route = std::move(routesToTake_.front());
  routesToTake_.pop_front();
  return route;
}

}  // namespace zephyl::sandbox::desktop
