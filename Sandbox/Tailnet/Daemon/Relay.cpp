#include "Tailnet/Daemon/Relay.hpp"

#include <array>
#include <cstddef>

#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/write.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace {

constexpr std::size_t bytesAtATime = 16'384;

asio::awaitable<void> pump(boost::beast::tcp_stream& from, boost::beast::tcp_stream& to) {
  std::array<char, bytesAtATime> bytes{};
  for (;;) {
    const auto [readError, size] = co_await from.async_read_some(asio::buffer(bytes), asTuple);
    if (readError == asio::error::eof) {
      boost::system::error_code ignored;
      to.socket().shutdown(asio::socket_base::shutdown_send, ignored);
      co_return;
    }
    if (readError) break;
    const auto [writeError, written] =
        co_await asio::async_write(to, asio::buffer(bytes.data(), size), asTuple);
    if (writeError) break;
  }
  from.close();
  to.close();
}

}  // namespace

asio::awaitable<void> relay(boost::beast::tcp_stream& one, boost::beast::tcp_stream& other) {
  using namespace asio::experimental::awaitable_operators;
  co_await (pump(one, other) && pump(other, one));
}

}  // namespace zephyl::sandbox
