#include "Desktop/Window/Window.hpp"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string_view>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <unistd.h>

#include "Common/Async.hpp"
#include "Common/LocalSocket.hpp"
#include "Common/Log.hpp"
#include "Desktop/Common/SocketPath.hpp"
#include "Desktop/Window/CommandSocket.hpp"
#include "Desktop/Window/Routes.hpp"
#include "Desktop/Window/TrayClient.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
namespace fs = std::filesystem;
using namespace std::chrono_literals;
namespace {

constexpr auto pollInterval = 1s;
constexpr std::size_t mostClients = 32;

void end(asio::io_context& io, std::string_view why) {
  log("zephyl-desktop: ending, {}", why);
  io.stop();
}

asio::awaitable<void> poll(asio::io_context& io, TrayClient& tray, pid_t parent) {
  while (::getppid() == parent) {
    // What comes back is remembered by the client; a tray that does not answer is asked again.
    const Request status{.method = "GET", .path = "/status"};
    co_await tray.ask(status);
    co_await pause(pollInterval);
  }
  end(io, "the tray is gone");
}

/// Its directory is the tray's base directory, which may not be there yet.
Result<LocalListener> listen(const asio::any_io_executor& executor, const std::string& path) {
  const auto directory = fs::path(path).parent_path();
  std::error_code error;
  if (fs::create_directories(directory, error)) {
    fs::permissions(directory, fs::perms::owner_all, error);
  }
  return listenOnLocal(executor, path);
}

}  // namespace

Result<void> runWindow(TrayAccess access) {
  const auto parent = ::getppid();
  Routes routes;
  asio::io_context io(1);
  asio::signal_set signals(io, SIGTERM, SIGINT, SIGHUP);
  signals.async_wait([&io](boost::system::error_code error, int) {
    if (!error) end(io, "as told");
  });

  const auto path = socketPath();
  if (!path) return path.error();
  auto listener = listen(io.get_executor(), *path);
  if (!listener) return listener.error();
  TrayClient tray(io.get_executor(), std::move(access), routes);
  asio::co_spawn(io,
                 acceptAll(std::move(listener->acceptor), mostClients,
                           [&](LocalProtocol::socket socket) {
                             return serveCommand(std::move(socket), tray, routes);
                           }),
                 asio::detached);
  asio::co_spawn(io, poll(io, tray, parent), asio::detached);
  log("zephyl-desktop: taking commands at {}", *path);
  io.run();
  return {};
}

}  // namespace zephyl::sandbox::desktop
