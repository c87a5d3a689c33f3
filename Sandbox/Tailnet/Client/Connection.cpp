#include "Tailnet/Client/Connection.hpp"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string_view>
#include <utility>

#include <boost/asio/detached.hpp>
#include <fmt/format.h>

#include "Common/Async.hpp"
#include "Common/Log.hpp"
#include "Common/PrivateFile.hpp"
#include "Tailnet/Client/DaemonCheck.hpp"
#include "Tailnet/Client/Enrolment.hpp"
#include "Tailnet/Client/HttpServer.hpp"
#include "Tailnet/Client/ServerIdentity.hpp"
#include "Tailnet/Client/Target.hpp"
#include "Tailnet/Client/WelcomePage.hpp"
#include "Tailnet/Common/Endpoint.hpp"
#include "Tailnet/Common/StateFile.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using asio::ip::tcp;
using namespace std::chrono_literals;
namespace {

constexpr std::string_view relay = "relay-1.zephyl.example";
constexpr auto daemonPatience = 3s;
constexpr std::size_t mostClients = 128;

/// The relay is out of reach for as long as a file `fail` says so.
bool relayIsReachable(const Settings& settings) {
  std::error_code error;
  return !std::filesystem::exists(settings.stateDirectory + "/fail", error);
}

asio::awaitable<Result<void>> join(const Settings& settings, PreauthKey& key) {
  if (!relayIsReachable(settings)) co_return Failure{"relay unreachable"};
  const auto executor = co_await asio::this_coro::executor;
  const auto daemon = co_await awaitDaemon(executor, settings.controlSocket, daemonPatience);
  if (!daemon) co_return daemon.error();
  const auto proxy = co_await checkProxy(executor, settings.socks5);
  if (!proxy) co_return proxy.error();
  log("tailscaled is up as node {}", daemon->node);

  const auto made = makePrivateDirectory(settings.stateDirectory);
  if (!made) co_return made.error();
  const auto enrolled = enrol(settings.stateDirectory, settings.fingerprint, key);
  key.forget();
  if (!enrolled) co_return Failure{"ENROLMENT FAILED: ", enrolled.error().message};
  logLine("joined the tailnet");
  log("verified control plane via {}", relay);
  co_return Result<void>();
}

void serve(tcp::acceptor acceptor, Site site) {
  const auto executor = acceptor.get_executor();
  const auto shared = std::make_shared<const Site>(std::move(site));
  const auto serveClient = [shared](tcp::socket socket) {
    return serveHttp(std::move(socket), shared);
  };
  asio::co_spawn(executor, acceptAll(std::move(acceptor), mostClients, serveClient),
                 asio::detached);
}

Site shimSite() {
  return [](std::string_view) { return Content{.type = "text/plain", .body = "agent shim"}; };
}

Site welcomeSite(const Settings& settings, const ServerIdentity& server,
                 std::shared_ptr<const Target> target) {
  return [fingerprint = settings.fingerprint, server,
          target = std::move(target)](std::string_view path) -> std::optional<Content> {
    if (path != "/") return std::nullopt;
    return Content{.type = "text/html; charset=utf-8",
                   .body = composeWelcomePage({.server = server,
                                               .fingerprint = fingerprint,
                                               .relay = relay,
                                               .target = target->address(),
                                               .targetResolved = target->isResolved()})};
  };
}

/// The alias's port 80 when the system lets us have it, the fallback otherwise.
Result<tcp::acceptor> listenForTunnel(const asio::any_io_executor& executor,
                                      const Settings& settings) {
  auto first = listenOn(executor, settings.tunnel);
  if (first) return first;
  log("{}; trying {}", first.error().message, toText(settings.tunnelFallback));
  return listenOn(executor, settings.tunnelFallback);
}

std::shared_ptr<Target> targetOf(const Settings& settings) {
  auto address = settings.target.value_or("http://" + toText(settings.shim));
  return std::make_shared<Target>(std::move(address), settings.stateDirectory);
}

void tell(const tcp::endpoint& tunnel, const ServerIdentity& server, const Settings& settings) {
  log("data tunnel on http://{}", toText(tunnel));
  log("server name: {}", server.name);
  log("server accent: {}", server.accent);
  log("found Zephyl at {} (tailnet {})", server.name, settings.fingerprint);
}

}  // namespace

asio::awaitable<Result<void>> bringUp(const Settings& settings, PreauthKey& key) {
  const auto joined = co_await join(settings, key);
  if (!joined) co_return joined.error();

  const auto executor = co_await asio::this_coro::executor;
  auto shim = listenOn(executor, settings.shim);
  if (!shim) co_return shim.error();
  auto tunnel = listenForTunnel(executor, settings);
  if (!tunnel) co_return tunnel.error();
  const auto tunnelEndpoint = tunnel->local_endpoint();
  const auto server = identityOf(settings.fingerprint);
  const auto target = targetOf(settings);
  serve(*std::move(shim), shimSite());
  serve(*std::move(tunnel), welcomeSite(settings, server, target));

  tell(tunnelEndpoint, server, settings);
  target->resolve();
  co_await target->keepResolving();
  co_return Result<void>();
}

}  // namespace zephyl::sandbox
