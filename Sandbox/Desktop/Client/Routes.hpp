#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox::desktop {

/// The screens that the tray asked for. The tray hands out each one once, so they are kept until a
/// watcher has taken them: the newest 100, oldest first. Must be used on one thread.
class Routes {
 public:
  void add(const std::string& route);

  /// Receives the routes that no watcher has taken yet, and all that are added while it exists.
  /// What it has not taken when it goes away is kept, unless there is another watcher. The routes
  /// must outlive it.
  class Watcher {
   public:
    Watcher(Routes& routes, const boost::asio::any_io_executor& executor);
    ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /// Returns when there is a route to take.
    boost::asio::awaitable<void> wait();
    std::optional<std::string> take();

   private:
    friend class Routes;

    Routes& routes_;
    Changes arrivals_;
    std::deque<std::string> pending_;
  };

 private:
  std::deque<std::string> untaken_;
  std::set<Watcher*> watchers_;
};

}  // namespace zephyl::sandbox::desktop
