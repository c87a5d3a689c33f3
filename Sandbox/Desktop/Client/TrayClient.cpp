#include "Desktop/Client/TrayClient.hpp"

#include <chrono>
#include <cstdint>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace {

constexpr std::chrono::seconds sendTimeout(10);
constexpr std::chrono::seconds readingTimeout(10);
constexpr std::uint64_t maxBodyBytes = 33'554'432;

Error noAnswer(const beast::error_code& error) {
  return {"The tray does not answer: ", error.message()};
}

http::request<http::string_body> toHTTP(const Request& request, const TrayAccess& access) {
  http::request<http::string_body> message;
  message.version(11);
  message.method_string(request.method);
  message.target(request.path);
  message.set(http::field::host, "127.0.0.1:" + std::to_string(access.port));
  message.set(http::field::connection, "close");
  message.set("X-Zephyl-Onboard-Token", access.token);
  if (!request.body.empty()) message.set(http::field::content_type, "application/json");
  message.body() = request.body;
  message.prepare_payload();
  return message;
}

asio::awaitable<beast::error_code> send(beast::tcp_stream& stream, const Request& request,
                                        const TrayAccess& access) {
  stream.expires_after(sendTimeout);
  const asio::ip::tcp::endpoint endpoint(asio::ip::address_v4::loopback(), access.port);
  const auto [connectError] = co_await stream.async_connect(endpoint, asTuple);
  if (connectError) co_return connectError;
  const auto message = toHTTP(request, access);
  const auto [writeError, size] = co_await http::async_write(stream, message, asTuple);
  stream.expires_never();
  co_return writeError;
}

}  // namespace

asio::awaitable<Result<Answer>> TrayClient::ask(Request request) {
  beast::tcp_stream stream(co_await asio::this_coro::executor);
  if (const auto error = co_await send(stream, request, access_)) co_return noAnswer(error);
  if (request.method == "GET") stream.expires_after(readingTimeout);
  beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  parser.body_limit(maxBodyBytes);
  const auto [error, size] = co_await http::async_read(stream, buffer, parser, asTuple);
  if (error) co_return noAnswer(error);
  Answer answer;
  answer.status = static_cast<int>(parser.get().result_int());
  answer.body = std::move(parser.get().body());
  if (request.path == statusPath) {
    const auto status = contentAs<TrayStatus>(answer);
    if (status && status->request) routes_.add(*status->request);
  }
  co_return answer;
}

}  // namespace zephyl::sandbox::desktop
