#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace zephyl::sandbox {

using std::chrono::steady_clock;

/// Makes an operation return its error and its result instead of throwing.
constexpr auto asTuple = boost::asio::as_tuple(boost::asio::use_awaitable);

inline boost::asio::awaitable<void> pauseUntil(steady_clock::time_point end) {
  boost::asio::steady_timer timer(co_await boost::asio::this_coro::executor, end);
  co_await timer.async_wait(asTuple);
}

inline boost::asio::awaitable<void> pause(steady_clock::duration length) {
  return pauseUntil(steady_clock::now() + length);
}

/// Counts changes and wakes the coroutines that wait for one. Must be used on one thread.
class Changes {
 public:
  explicit Changes(const boost::asio::any_io_executor& executor)
      : timer_(executor, steady_clock::time_point::max()) {}

  [[nodiscard]] std::uint64_t count() const { return count_; }

  void notify() {
    ++count_;
    timer_.cancel();
  }

  /// Returns when there have been more than `seen` changes.
  boost::asio::awaitable<void> waitForMoreThan(std::uint64_t seen) {
    if (count_ <= seen) co_await timer_.async_wait(asTuple);
  }

 private:
  boost::asio::steady_timer timer_;
  std::uint64_t count_ = 0;
};

/// Accepts connections until the executor stops and serves each in its own coroutine. Closes
/// connections beyond `maxConnections` at once. Retries if the system has no free descriptor.
template <typename Acceptor, typename Serve>
boost::asio::awaitable<void> acceptAll(Acceptor acceptor, std::size_t maxConnections, Serve serve) {
  constexpr std::chrono::milliseconds retryInterval(100);
  const auto open = std::make_shared<std::size_t>(0);
  for (;;) {
    auto [error, socket] = co_await acceptor.async_accept(asTuple);
    if (error) {
      co_await pause(retryInterval);
    } else if (*open < maxConnections) {
      ++*open;
      const auto onEnd = [open](const std::exception_ptr&) { --*open; };
      boost::asio::co_spawn(acceptor.get_executor(), serve(std::move(socket)), onEnd);
    }
  }
}

template <typename Acceptor, typename Serve>
void spawnAcceptor(Acceptor acceptor, std::size_t maxConnections, Serve serve) {
  const auto executor = acceptor.get_executor();
  boost::asio::co_spawn(executor, acceptAll(std::move(acceptor), maxConnections, std::move(serve)),
                        boost::asio::detached);
}

/// Ends the sending direction of a Beast stream and discards received data, within limits. Closing
/// at once would reset the connection, which could destroy the last answer.
template <typename Stream>
boost::asio::awaitable<void> drain(Stream& stream) {
  constexpr std::chrono::seconds timeout(1);
  constexpr std::size_t maxBytes = 1'048'576;
  boost::system::error_code ignored;
  stream.socket().shutdown(boost::asio::socket_base::shutdown_send, ignored);
  stream.expires_after(timeout);
  std::array<char, 4096> rest{};
  for (std::size_t total = 0; total < maxBytes;) {
    const auto [error, size] = co_await stream.async_read_some(boost::asio::buffer(rest), asTuple);
    if (error) break;
    total += size;
  }
}

}  // namespace zephyl::sandbox
