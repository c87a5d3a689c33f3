#include "Tailnet/Client/DaemonCheck.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <string_view>

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include "Common/Async.hpp"
#include "Common/Endpoint.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace std::chrono_literals;
namespace {

constexpr auto daemonTimeout = 3s;
constexpr auto daemonRetryInterval = 100ms;
constexpr auto proxyTimeout = 1s;

/// A greeting with version 5 and one method, no authentication, and the answer that accepts it.
constexpr std::array<std::uint8_t, 3> greeting{5, 1, 0};
constexpr std::array<std::uint8_t, 2> welcome{5, 0};

}  // namespace

asio::awaitable<Result<control::Status>> awaitDaemon(std::string socketPath) {
  const auto endpoint = localEndpoint(socketPath);
  if (!endpoint) co_return endpoint.error();
  const auto deadline = steady_clock::now() + daemonTimeout;
  for (;;) {
    auto status = co_await control::askStatus(*endpoint);
    if (status) co_return status;
    if (steady_clock::now() >= deadline) {
      co_return Error{"tailscaled does not answer on ", socketPath, ": ", status.error().message};
    }
    co_await pause(daemonRetryInterval);
  }
}

asio::awaitable<Result<void>> checkProxy(asio::ip::tcp::endpoint endpoint) {
  const auto failure = [name = toText(endpoint)](std::string_view reason) {
    return Error{"no SOCKS5 proxy on ", name, ": ", reason};
  };
  boost::beast::tcp_stream stream(co_await asio::this_coro::executor);
  stream.expires_after(proxyTimeout);
  const auto [connectError] = co_await stream.async_connect(endpoint, asTuple);
  if (connectError) co_return failure(connectError.message());
  co_await asio::async_write(stream, asio::buffer(greeting), asTuple);
  std::array<std::uint8_t, welcome.size()> answer{};
  const auto [error, size] = co_await asio::async_read(stream, asio::buffer(answer), asTuple);
  if (error) co_return failure(error.message());
  if (answer != welcome) co_return failure("the program on this port is not a SOCKS 5 proxy");
  co_return Result<void>();
}

}  // namespace zephyl::sandbox
