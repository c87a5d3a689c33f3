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

/// The screens that the tray requested. The tray reports each one once, so the newest 100 are kept
/// until a watcher has received them, oldest first. Must be used on one thread.
class Routes {
 public:
  void add(const std::string& route);

  /// Receives the routes that no watcher has received yet, and all routes that are added while it
  /// exists. On destruction its unread routes are kept, unless there is another watcher. The routes
  /// must outlive it.
  class Watcher {
   public:
    Watcher(Routes& routes, const boost::asio::any_io_executor& executor);
    ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /// Returns when there is an unread route.
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
