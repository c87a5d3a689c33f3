#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "Desktop/Window/WindowService.hpp"

namespace zephyl::sandbox::desktop {

/// The window's connection to the tray, on a thread of its own. What it calls back runs on the
/// thread of the application, while the application's event loop runs. Must be created and
/// destroyed on that thread; the destructor waits for the other one. Answers that are on their way
/// then are still delivered.
class TrayLink {
 public:
  struct Events {
    /// The tray wants a screen to be shown.
    std::function<void(const std::string& route)> route;
    /// A signal asked for the end.
    std::function<void()> ended;
  };

  TrayLink(TrayAccess access, Events events);
  ~TrayLink();
  TrayLink(const TrayLink&) = delete;
  TrayLink& operator=(const TrayLink&) = delete;

  /// Starts the thread. An error says why no commands are accepted; everything else works.
  Result<void> start();
  void ask(const Request& request, std::function<void(const Result<Answer>&)> answered);

 private:
  boost::asio::awaitable<void> watchRoutes();
  static void post(std::function<void()> task);

  WindowService service_;
  const Events events_;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace zephyl::sandbox::desktop
