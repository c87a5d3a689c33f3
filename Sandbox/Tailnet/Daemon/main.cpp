#include <csignal>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <variant>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>

#include "Common/Async.hpp"
#include "Common/Log.hpp"
#include "Tailnet/Common/Ending.hpp"
#include "Tailnet/Common/Endpoint.hpp"
#include "Tailnet/Daemon/ControlSocket.hpp"
#include "Tailnet/Daemon/Node.hpp"
#include "Tailnet/Daemon/Settings.hpp"
#include "Tailnet/Daemon/SocksProxy.hpp"

namespace zephyl::sandbox {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

/// Each may take two descriptors, so all fit into the usual limit of 1024.
constexpr std::size_t mostSocksClients = 256;
constexpr std::size_t mostControlClients = 32;
constexpr int usageStatus = 2;

int fail(const Failure& failure, int status) {
  fmt::print(stderr, "tailscaled: {}\n", failure.message);
  return status;
}

/// Logs a refusal, once for a client that keeps trying the same.
std::shared_ptr<const OnRefusal> refusalLog() {
  return std::make_shared<const OnRefusal>(
      [last = std::string()](const std::string& destination) mutable {
        if (destination == last) return;
        log("refused a connection to {}: not on this machine", destination);
        last = destination;
      });
}

int serve(const Settings& settings) {
  asio::io_context io(1);
  Ending ending(io, settings.misbehaviour);
  const auto executor = io.get_executor();
  auto proxy = listenOn(executor, settings.socks5);
  if (!proxy) return fail(proxy.error(), 1);
  auto control = listenOnLocal(executor, settings.controlSocket);
  if (!control) return fail(control.error(), 1);
  const auto node = nodeIn(settings.stateDirectory);
  if (!node) return fail(node.error(), 1);

  const control::Status status{.running = true, .node = *node};
  asio::co_spawn(io,
                 acceptAll(*std::move(proxy), mostSocksClients,
                           [onRefusal = refusalLog()](tcp::socket socket) {
                             return serveSocks(std::move(socket), onRefusal);
                           }),
                 asio::detached);
  asio::co_spawn(io,
                 acceptAll(std::move(control->acceptor), mostControlClients,
                           [status](LocalProtocol::socket socket) {
                             return serveControl(std::move(socket), status);
                           }),
                 asio::detached);
  log("node {}", *node);
  log("SOCKS5 proxy on {}", toText(settings.socks5));
  log("control socket at {}", settings.controlSocket);
  io.run();
  logLine("stopped");
  return ending.status();
}

int run(std::span<const char* const> words) {
  const auto invocation = readSettings(words);
  if (!invocation) return fail(invocation.error(), usageStatus);
  if (const auto* notice = std::get_if<Notice>(&*invocation)) {
    fmt::print("{}", notice->text);
    return 0;
  }
  return serve(std::get<Settings>(*invocation));
}

}  // namespace
}  // namespace zephyl::sandbox

int main(int argc, char** argv) {
  // A client or a reader of the log that goes away is an error of that write, no reason to die.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return zephyl::sandbox::run(std::span(argv, argc).subspan(1));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tailscaled: %s\n", error.what());
    return 1;
  }
}
