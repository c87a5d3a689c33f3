#include "Desktop/Window/WindowService.hpp"

#include <chrono>
#include <csignal>
#include <utility>

#include <unistd.h>

#include "Common/Async.hpp"
#include "Common/Log.hpp"
#include "Desktop/Window/CommandSocket.hpp"
#include "Desktop/Window/Messages.hpp"
#include "System/Files/Files.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
namespace {

constexpr std::chrono::seconds pollInterval(1);
constexpr std::size_t maxCommandClients = 32;

}  // namespace

WindowService::WindowService(TrayAccess access)
    : parent_(::getppid()),
      signals_(io_, SIGTERM, SIGINT, SIGHUP),
      tray_(std::move(access), routes_) {
  signals_.async_wait([this](boost::system::error_code error, int) {
    if (!error) end("as requested");
  });
}

void WindowService::end(std::string_view reason) {
  log("zephyl-desktop: ending, {}", reason);
  io_.stop();
}

Result<std::string> WindowService::start(Polling polling) {
  const auto path = socketPath();
  if (!path) return path.error();
  // The socket is in the tray's base directory, which may not exist yet.
  if (const auto made = createDirectories(parentDirectory(*path)); !made) return made.error();
  auto listener = listenOnLocal(io_.get_executor(), *path);
  if (!listener) return listener.error();
  socketFile_.emplace(std::move(listener->file));
  spawnAcceptor(std::move(listener->acceptor), maxCommandClients,
                [this](LocalProtocol::socket socket) {
                  return serveCommand(std::move(socket), tray_, routes_);
                });
  if (polling == Polling::everySecond) asio::co_spawn(io_, poll(), asio::detached);
  log("zephyl-desktop: accepting commands at {}", *path);
  return *path;
}

asio::awaitable<void> WindowService::poll() {
  while (::getppid() == parent_) {
    // The client stores the requested screens. A tray that does not answer is polled again.
    co_await tray_.ask(getStatus());
    co_await pause(pollInterval);
  }
  end("because the tray has ended");
}

}  // namespace zephyl::sandbox::desktop
