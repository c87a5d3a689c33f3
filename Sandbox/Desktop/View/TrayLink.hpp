#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "Desktop/Window/WindowService.hpp"

namespace zephyl::sandbox::desktop {

/// The window's connection to the tray, on its own thread. Its callbacks run on the application's
/// thread, in its event loop. Must be created and destroyed on that thread. The destructor waits
/// for the other thread. Pending answers are still delivered.
class TrayLink {
 public:
  struct Events {
    /// The tray requests a screen.
    std::function<void(const std::string& route)> route;
    /// A signal to end was received.
    std::function<void()> ended;
  };

  TrayLink(TrayAccess access, Events events);
  ~TrayLink();
  TrayLink(const TrayLink&) = delete;
  TrayLink& operator=(const TrayLink&) = delete;

  /// Starts the thread. An error is the reason why no commands are accepted. Everything else works.
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
