#include "Agent/EventStream.hpp"

#include <array>
#include <string>

#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/write.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace asio::experimental::awaitable_operators;
using namespace std::chrono_literals;
namespace {

constexpr auto minEventInterval = 100ms;
constexpr auto eventTimeout = 10s;

std::string headOf(bool chunked) {
  return formatText(
      "HTTP/1.{} 200 OK\r\n"
      "Content-Type: text/event-stream\r\n"
      "Cache-Control: no-store\r\n"
      "Connection: close\r\n"
      "{}\r\n",
      chunked ? 1 : 0, chunked ? "Transfer-Encoding: chunked\r\n" : "");
}

/// Returns false if the client no longer reads.
asio::awaitable<bool> writeBytes(boost::beast::tcp_stream& stream, std::string bytes) {
  stream.expires_after(eventTimeout);
  const auto [error, size] = co_await asio::async_write(stream, asio::buffer(bytes), asTuple);
  stream.expires_never();
  co_return !error;
}

asio::awaitable<void> writeEvents(Agent& agent, const HTTPServer& server,
                                  boost::beast::tcp_stream& stream,
                                  std::chrono::milliseconds keepAlive, bool chunked) {
  if (!co_await writeBytes(stream, headOf(chunked))) co_return;
  std::shared_ptr<const std::string> sent;
  steady_clock::time_point lastWritten{};
  while (!server.isStopping()) {
    const auto seen = agent.changes().count();
    const auto activity = agent.activity();
    const bool isNew = activity != sent;
    const auto due = lastWritten + (isNew ? minEventInterval : keepAlive);
    if (steady_clock::now() < due) {
      co_await (agent.changes().waitForMoreThan(seen) || pauseUntil(due));
      continue;
    }
    sent = activity;
    lastWritten = steady_clock::now();
    auto event = isNew ? "data: " + *activity + "\n\n" : ":\n\n";
    if (chunked) event = formatText("{:x}\r\n{}\r\n", event.size(), event);
    if (!co_await writeBytes(stream, std::move(event))) co_return;
  }
  if (chunked) co_await writeBytes(stream, "0\r\n\r\n");
}

/// Discards further data of the client.
asio::awaitable<void> awaitClose(boost::beast::tcp_stream& stream) {
  std::array<char, 512> ignored{};
  for (;;) {
    const auto [error, size] =
        co_await stream.socket().async_read_some(asio::buffer(ignored), asTuple);
    if (error) co_return;
  }
}

}  // namespace

asio::awaitable<void> serveEvents(Agent& agent, const HTTPServer& server,
                                  const HTTPRequest& request, boost::beast::tcp_stream& stream,
                                  std::chrono::milliseconds keepAlive) {
  const bool chunked = request.version() >= 11;
  stream.expires_never();
  co_await (writeEvents(agent, server, stream, keepAlive, chunked) || awaitClose(stream));
}

}  // namespace zephyl::sandbox
