#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <sys/types.h>

#include "Common/LocalSocket.hpp"
#include "Desktop/Client/TrayClient.hpp"

namespace zephyl::sandbox::desktop {

/// The background work of a window that the tray started: stores the screens that the tray
/// requests, and serves commands on its socket. Without a visible window it also polls the tray
/// once a second, and ends when the process that started it has ended.
///
/// Has an event loop of its own, which `run` runs. All other functions must be called on the thread
/// that runs it, unless stated otherwise.
class WindowService {
 public:
  enum class Polling { everySecond, never };

  explicit WindowService(TrayAccess access);
  WindowService(const WindowService&) = delete;
  WindowService& operator=(const WindowService&) = delete;

  /// Returns the path of the socket that now accepts commands.
  Result<std::string> start(Polling polling);

  /// Returns after a signal to end, when the tray has ended, or when the loop was stopped. Logs the
  /// first two.
  void run() { io_.run(); }
  /// Makes `run` return. Callable from any thread.
  void stop() { io_.stop(); }

  boost::asio::io_context& io() { return io_; }
  TrayClient& tray() { return tray_; }
  Routes& routes() { return routes_; }

 private:
  boost::asio::awaitable<void> poll();
  void end(std::string_view reason);

  const pid_t parent_;
  Routes routes_;
  boost::asio::io_context io_{1};
  boost::asio::signal_set signals_;
  TrayClient tray_;
  std::optional<SocketFile> socketFile_;
};

}  // namespace zephyl::sandbox::desktop
