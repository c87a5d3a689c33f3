#include "Desktop/Window/CommandSocket.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include <boost/asio/experimental/awaitable_operators.hpp>

#include "Common/Async.hpp"
#include "Desktop/Window/Messages.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
using namespace asio::experimental::awaitable_operators;
namespace {

constexpr std::chrono::seconds commandTimeout(10);

std::string toLine(const Reply& reply) {
  return json::compact(json::encode(reply));
}

std::string errorLine(const Error& error) {
  return toLine({.error = error.message});
}

std::string routeLine(const std::string& route) {
  return toLine({.request = route});
}

std::string answerLine(const Result<Answer>& answer) {
  if (!answer) return errorLine(answer.error());
  return toLine({.status = answer->status, .body = answer->body});
}

bool isWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte > 0x20 && byte != 0x7F;
  });
}

/// Returns nullopt for a command that watches the routes.
Result<std::optional<Request>> parseCommand(const std::string& line) {
  const auto command = json::decodeText<Command>(line);
  if (!command) return Error{"invalid command: ", command.error().message};
  if (command->watch == "requests") return std::optional<Request>();
  if (!command->method || !command->path) return Error{"the command is incomplete"};
  if (!isWord(*command->method) || !isWord(*command->path) || !command->path->starts_with('/')) {
    return Error{"the command's method or path is invalid"};
  }
  return std::optional<Request>(
      {.method = *command->method, .path = *command->path, .body = command->body.value_or("")});
}

asio::awaitable<bool> send(LocalStream& stream, std::string line) {
  stream.expires_after(commandTimeout);
  co_return co_await writeLine(stream, std::move(line));
}

asio::awaitable<void> awaitEnd(LocalStream& stream) {
  std::array<char, 64> ignored{};
  for (;;) {
    const auto [error, size] = co_await stream.async_read_some(asio::buffer(ignored), asTuple);
    if (error) co_return;
  }
}

asio::awaitable<void> serveWatch(LocalStream& stream, Routes& routes) {
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
  LocalStream stream(std::move(socket));
  stream.expires_after(commandTimeout);
  std::string received;
  const auto line = co_await readLine(stream, received, maxCommandBytes);
  const auto command = line ? parseCommand(*line) : Error{"the client sent no command"};
  if (!command) {
    co_await send(stream, errorLine(command.error()));
  } else if (*command) {
    const auto answer = co_await tray.ask(**command);
    co_await send(stream, answerLine(answer));
  } else {
    co_await serveWatch(stream, routes);
  }
  co_await drain(stream);
}

}  // namespace zephyl::sandbox::desktop
