#include "Tailnet/Common/Control.hpp"

#include <chrono>
#include <utility>

#include "Common/Async.hpp"

namespace zephyl::sandbox::control {
namespace asio = boost::asio;
using namespace std::chrono_literals;
namespace {

constexpr auto requestTimeout = 10s;
constexpr auto answerTimeout = 1s;
/// Includes the end of the line.
constexpr std::size_t maxLineBytes = 4096;

std::string answerTo(const std::string& line, const Status& status) {
  const auto request = json::decodeText<Request>(line);
  if (!request) return json::compact({{"error", request.error().message}});
  if (request->op != "status") return json::compact({{"error", "unknown \"op\""}});
  return json::compact(json::encode(status));
}

// Not inside the coroutine, because GCC 12 destroys such a temporary twice there.
std::string statusRequest() {
  return json::compact(json::encode(Request{.op = "status"}));
}

}  // namespace

asio::awaitable<void> serve(LocalProtocol::socket socket, Status status) {
  LocalStream stream(std::move(socket));
  std::string received;
  for (;;) {
    stream.expires_after(requestTimeout);
    const auto line = co_await readLine(stream, received, maxLineBytes);
    if (!line || !co_await writeLine(stream, answerTo(*line, status))) break;
  }
  co_await drain(stream);
}

asio::awaitable<Result<Status>> askStatus(LocalProtocol::endpoint endpoint) {
  LocalStream stream(co_await asio::this_coro::executor);
  stream.expires_after(answerTimeout);
  const auto [error] = co_await stream.async_connect(endpoint, asTuple);
  if (error) co_return Error{error.message()};
  co_await writeLine(stream, statusRequest());
  std::string received;
  const auto line = co_await readLine(stream, received, maxLineBytes);
  if (!line) co_return line.error();
  auto status = json::decodeText<Status>(*line);
  if (!status) co_return Error{"its answer is invalid"};
  if (!status->running) co_return Error{"it is not running yet"};
  co_return status;
}

}  // namespace zephyl::sandbox::control
