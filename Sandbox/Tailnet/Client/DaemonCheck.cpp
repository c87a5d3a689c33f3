#include "Tailnet/Client/DaemonCheck.hpp"

#include <array>
#include <cstdint>
#include <string_view>

#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <fmt/format.h>

#include "Common/Async.hpp"
#include "Tailnet/Common/Endpoint.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace std::chrono_literals;
namespace {

constexpr auto answerPatience = 1s;
constexpr auto retryInterval = 100ms;

/// Version 5, one method: no authentication. And the answer that accepts it.
constexpr std::array<std::uint8_t, 3> greeting{5, 1, 0};
constexpr std::array<std::uint8_t, 2> welcome{5, 0};

asio::awaitable<Result<control::Status>> ask(asio::any_io_executor executor,
                                             LocalProtocol::endpoint endpoint) {
  control::Stream stream(executor);
  stream.expires_after(answerPatience);
  if (const auto [error] = co_await stream.async_connect(endpoint, asTuple); error) {
    co_return Failure{error.message()};
  }
  const auto request = asio::buffer(control::statusRequest);
  if (const auto [error, size] = co_await asio::async_write(stream, request, asTuple); error) {
    co_return Failure{error.message()};
  }
  std::string line;
  const auto [error, size] = co_await asio::async_read_until(
      stream, asio::dynamic_buffer(line, control::mostLineBytes), '\n', asTuple);
  if (error) co_return Failure{error.message()};
  auto status = control::parseStatus(std::string_view(line).substr(0, size));
  if (!status) co_return Failure{"its answer makes no sense"};
  if (!status->running) co_return Failure{"it is not running yet"};
  co_return *std::move(status);
}

}  // namespace

asio::awaitable<Result<control::Status>> awaitDaemon(asio::any_io_executor executor,
                                                     std::string socketPath,
                                                     std::chrono::milliseconds patience) {
  const auto endpoint = localEndpoint(socketPath);
  if (!endpoint) co_return endpoint.error();
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (;;) {
    auto status = co_await ask(executor, *endpoint);
    if (status) co_return status;
    if (std::chrono::steady_clock::now() >= deadline) {
      co_return Failure{
          fmt::format("tailscaled does not answer on {}: {}", socketPath, status.error().message)};
    }
    co_await pause(retryInterval);
  }
}

asio::awaitable<Result<void>> checkProxy(asio::any_io_executor executor,
                                         asio::ip::tcp::endpoint endpoint) {
  const auto failure = [endpoint](std::string_view reason) {
    return Failure{fmt::format("no SOCKS5 proxy on {}: {}", toText(endpoint), reason)};
  };
  boost::beast::tcp_stream stream(executor);
  stream.expires_after(answerPatience);
  if (const auto [error] = co_await stream.async_connect(endpoint, asTuple); error) {
    co_return failure(error.message());
  }
  const auto request = asio::buffer(greeting);
  if (const auto [error, size] = co_await asio::async_write(stream, request, asTuple); error) {
    co_return failure(error.message());
  }
  std::array<std::uint8_t, welcome.size()> answer{};
  const auto [error, size] = co_await asio::async_read(stream, asio::buffer(answer), asTuple);
  if (error) co_return failure(error.message());
  if (answer != welcome) co_return failure("what listens there speaks something else");
  co_return Result<void>();
}

}  // namespace zephyl::sandbox
