#include "Tailnet/Client/Connection.hpp"

#include <chrono>
#include <memory>
#include <string_view>
#include <utility>

#include <boost/beast/http.hpp>

#include "Common/Async.hpp"
#include "Common/Endpoint.hpp"
#include "Common/HTTPServer.hpp"
#include "Common/Log.hpp"
#include "System/Files/Files.hpp"
#include "Tailnet/Client/DaemonCheck.hpp"
#include "Tailnet/Client/Target.hpp"
#include "Tailnet/Client/WelcomePage.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using namespace std::chrono_literals;
namespace {

constexpr std::string_view relayName = "relay-1.zephyl.example";
constexpr HTTPServer::Options siteOptions{
    .maxConnections = 128, .maxBodyBytes = 4'096, .requestTimeout = 30s, .answerTimeout = 30s};

asio::awaitable<Result<void>> join(const Settings& settings, PreauthKey& key) {
  if (fileExists(settings.stateDirectory + "/fail")) co_return Error{"relay unreachable"};
  const auto daemon = co_await awaitDaemon(settings.controlSocket);
  if (!daemon) co_return daemon.error();
  const auto proxy = co_await checkProxy(settings.socks5);
  if (!proxy) co_return proxy.error();
  log("tailscaled is up as node {}", daemon->node);

  const auto file = StateFile::open(settings.stateDirectory, "enrolment.json");
  if (!file) co_return file.error();
  const auto enrolled = enrol(*file, settings.fingerprint, key);
  key.forget();
  if (!enrolled) co_return Error{"ENROLMENT FAILED: ", enrolled.error().message};
  logLine("joined the tailnet");
  log("verified control plane via {}", relayName);
  co_return Result<void>();
}

HTTPResponse siteResponse(unsigned status, std::string_view type, std::string body) {
  auto response = httpResponse(status, type, std::move(body));
  response.set(http::field::x_frame_options, "DENY");
  response.set("X-Content-Type-Options", "nosniff");
  return response;
}

HTTPResponse siteError(http::status status) {
  const std::string_view reason = http::obsolete_reason(status);
  return siteResponse(static_cast<unsigned>(status), "text/plain", std::string(reason) + '\n');
}

/// Returns handlers for GET and HEAD. `find` returns the content of a path.
template <typename Find>
HTTPServer::Handlers siteHandlers(Find find) {
  return {
      .answer = [find](const HTTPRequest& request,
                       boost::beast::tcp_stream&) -> asio::awaitable<std::optional<HTTPResponse>> {
        if (request.method() != http::verb::get && request.method() != http::verb::head) {
          auto response = siteError(http::status::method_not_allowed);
          response.set(http::field::allow, "GET, HEAD");
          co_return response;
        }
        co_return find(pathOf(request));
      },
      .refuse = [](unsigned, std::string_view) { return siteError(http::status::bad_request); }};
}

HTTPResponse shimResponse(std::string_view) {
  return siteResponse(200, "text/plain", "agent shim");
}

HTTPResponse welcomeResponse(std::string_view path, const Settings& settings,
                             const Target& target) {
  if (path != "/") return siteError(http::status::not_found);
  return siteResponse(200, "text/html; charset=utf-8",
                      composeWelcomePage({.server = identityOf(settings.fingerprint),
                                          .fingerprint = settings.fingerprint,
                                          .relay = relayName,
                                          .target = target.address(),
                                          .targetResolved = target.isResolved()}));
}

/// Listens on the alias's port 80 if the system allows it, otherwise on the fallback.
Result<tcp::acceptor> listenForTunnel(const asio::any_io_executor& executor,
                                      const Settings& settings) {
  auto first = listenOn(executor, settings.tunnel);
  if (first) return first;
  log("{}; trying {}", first.error().message, toText(settings.tunnelFallback));
  return listenOn(executor, settings.tunnelFallback);
}

void logTunnel(const tcp::endpoint& tunnel, const Settings& settings) {
  const auto server = identityOf(settings.fingerprint);
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
  logTunnel(tunnel->local_endpoint(), settings);

  Target target(settings.target.value_or("http://" + toText(settings.shim)),
                settings.stateDirectory);
  HTTPServer shimServer(siteOptions, siteHandlers(shimResponse));
  HTTPServer tunnelServer(siteOptions, siteHandlers([&](std::string_view path) {
                            return welcomeResponse(path, settings, target);
                          }));
  shimServer.start(*std::move(shim));
  tunnelServer.start(*std::move(tunnel));
  target.resolve();
  co_await target.keepResolving();
  co_await pauseUntil(steady_clock::time_point::max());
  co_return Result<void>();
}

}  // namespace zephyl::sandbox
