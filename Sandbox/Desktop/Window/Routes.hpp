#pragma once

#include <deque>
#include <optional>
#include <set>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>

namespace zephyl::sandbox::desktop {

/// The screens that the tray asked for. The tray hands each out once, so they are remembered here
/// until somebody has watched: the newest 100, oldest first. One thread.
class Routes {
 public:
  void remember(const std::string& route);

  /// Sees what nobody has seen yet, and all that comes while it lives. What it has not taken in
  /// the end counts as unseen, unless another watches. Lives no longer than the routes.
  class Watcher {
   public:
    Watcher(Routes& routes, const boost::asio::any_io_executor& executor);
    ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /// Waits until there is something to take.
    boost::asio::awaitable<void> wait();
    std::optional<std::string> take();

   private:
    friend class Routes;

    Routes& routes_;
    boost::asio::steady_timer arrival_;
    std::deque<std::string> routesToTake_;
  };

 private:
  std::deque<std::string> unseen_;
  std::set<Watcher*> watchers_;
};

}  // namespace zephyl::sandbox::desktop
