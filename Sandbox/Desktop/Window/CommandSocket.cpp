#include "Desktop/Window/CommandSocket.hpp"

#include <array>
#include <chrono>
#include <string>
#include <utility>

#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/basic_stream.hpp>

#include "Common/Async.hpp"
#include "Desktop/Common/Messages.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
using namespace asio::experimental::awaitable_operators;
using namespace std::chrono_literals;
namespace {

using Stream = boost::beast::basic_stream<LocalProtocol>;

constexpr auto patience = 10s;

asio::awaitable<Result<Command>> receive(Stream& stream) {
  std::string received;
  stream.expires_after(patience);
  const auto [error, size] = co_await asio::async_read_until(
      stream, asio::dynamic_buffer(received, mostCommandBytes), '\n', asTuple);
  if (error) co_return Failure{"no command came: ", error.message()};
  co_return parseCommand(std::string_view(received).substr(0, size - 1));
}

/// Whether the line could be sent.
asio::awaitable<bool> send(Stream& stream, std::string line) {
  line += '\n';
  stream.expires_after(patience);
  const auto [error, size] = co_await asio::async_write(stream, asio::buffer(line), asTuple);
  co_return !error;
}

asio::awaitable<void> awaitEnd(Stream& stream) {
  std::array<char, 64> ignored{};
  for (;;) {
    const auto [error, size] = co_await stream.async_read_some(asio::buffer(ignored), asTuple);
    if (error) co_return;
  }
}

asio::awaitable<void> serveWatch(Stream& stream, Routes& routes) {
  Routes::Watcher watcher(routes, stream.get_executor());
  for (;;) {
    stream.expires_never();
    const auto ended = co_await (watcher.wait() || awaitEnd(stream));
    if (ended.index() == 1) co_return;
    while (const auto route = watcher.take()) {
      if (!co_await send(stream, routeLine(*route))) co_return;
    }
  }
}

}  // namespace

asio::awaitable<void> serveCommand(LocalProtocol::socket socket, TrayClient& tray, Routes& routes) {
  Stream stream(std::move(socket));
  auto command = co_await receive(stream);
  if (!command) {
    co_await send(stream, toLine(command.error()));
  } else if (auto* request = std::get_if<Request>(&*command)) {
    const auto answer = co_await tray.ask(std::move(*request));
    auto line = answer ? toLine(*answer) : toLine(answer.error());
    co_await send(stream, std::move(line));
  } else {
    co_await serveWatch(stream, routes);
  }
  co_await sayFarewell(stream);
}

}  // namespace zephyl::sandbox::desktop
