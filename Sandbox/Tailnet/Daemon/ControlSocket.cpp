#include "Tailnet/Daemon/ControlSocket.hpp"

#include <chrono>
#include <string>
#include <utility>

#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace std::chrono_literals;
namespace {

constexpr auto patience = 10s;

}  // namespace

asio::awaitable<void> serveControl(LocalProtocol::socket socket, control::Status status) {
  control::Stream stream(std::move(socket));
  std::string received;
  for (;;) {
    stream.expires_after(patience);
    const auto [readError, size] = co_await asio::async_read_until(
        stream, asio::dynamic_buffer(received, control::mostLineBytes), '\n', asTuple);
    if (readError) break;
    const auto line =
        control::answer(std::string_view(received).substr(0, size - 1), status) + '\n';
    received.erase(0, size);
    const auto [writeError, written] =
        co_await asio::async_write(stream, asio::buffer(line), asTuple);
    if (writeError) break;
  }
  co_await sayFarewell(stream);
}

}  // namespace zephyl::sandbox
