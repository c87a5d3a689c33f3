#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace zephyl::sandbox {

/// Awaits an operation for its error and its result: failure is a value, nothing is thrown.
constexpr auto asTuple = boost::asio::as_tuple(boost::asio::use_awaitable);

inline boost::asio::awaitable<void> pause(std::chrono::milliseconds length) {
  boost::asio::steady_timer timer(co_await boost::asio::this_coro::executor, length);
  co_await timer.async_wait(asTuple);
}

/// Accepts connections for ever and serves each by a coroutine of its own. Connections beyond
/// `most` at a time are closed at once; when the system has no descriptor left, it waits a little.
template <typename Acceptor, typename Serve>
boost::asio::awaitable<void> acceptAll(Acceptor acceptor, std::size_t most, Serve serve) {
  using namespace std::chrono_literals;
  constexpr auto retry = 100ms;
  const auto open = std::make_shared<std::size_t>(0);
  for (;;) {
    auto [error, socket] = co_await acceptor.async_accept(asTuple);
    if (error) {
      co_await pause(retry);
    } else if (*open < most) {
      ++*open;
      const auto onEnd = [open](const std::exception_ptr&) { --*open; };
      boost::asio::co_spawn(acceptor.get_executor(), serve(std::move(socket)), onEnd);
    }
  }
}

/// Lets the peer of a Beast stream read the last answer before the connection is closed: what is
/// still arriving is taken, within bounds, because closing over it would destroy the answer on its
/// way.
template <typename Stream>
boost::asio::awaitable<void> sayFarewell(Stream& stream) {
  using namespace std::chrono_literals;
  constexpr auto patience = 1s;
  constexpr std::size_t mostBytes = 65'536;
  boost::system::error_code ignored;
  stream.socket().shutdown(boost::asio::socket_base::shutdown_send, ignored);
  stream.expires_after(patience);
  std::array<char, 4096> rest{};
  for (std::size_t taken = 0; taken < mostBytes;) {
    const auto [error, size] = co_await stream.async_read_some(boost::asio::buffer(rest), asTuple);
    if (error) break;
    taken += size;
  }
}

}  // namespace zephyl::sandbox
