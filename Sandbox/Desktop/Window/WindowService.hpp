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

/// What a window that the tray started does besides being shown: it stores the screens that the
/// tray wants to see, and serves commands on its socket. Without a window on top it also asks the
/// tray for its state once a second, and ends when the process that started it has ended.
///
/// Has an event loop of its own, which `run` runs; everything else is for the thread that runs it,
/// except where a comment says otherwise.
class WindowService {
 public:
  enum class Polling { everySecond, never };

  explicit WindowService(TrayAccess access);
  WindowService(const WindowService&) = delete;
  WindowService& operator=(const WindowService&) = delete;

  /// Returns the path of the socket that now accepts commands.
  Result<std::string> start(Polling polling);

  /// Returns when a signal asks for the end, when the tray is gone, or when the loop was stopped;
  /// the first two are logged.
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
