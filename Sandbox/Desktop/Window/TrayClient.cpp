#include "Desktop/Window/TrayClient.hpp"

#include <chrono>
#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/json.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace json = boost::json;
using namespace std::chrono_literals;
namespace {

constexpr auto sendPatience = 10s;
constexpr std::uint64_t mostBodyBytes = 33'554'432;

Failure noAnswer(const beast::error_code& error) {
  return Failure{"The tray does not answer: ", error.message()};
}

http::request<http::string_body> toHttp(const Request& request, const TrayAccess& access) {
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
  stream.expires_after(sendPatience);
  const asio::ip::tcp::endpoint endpoint(asio::ip::address_v4::loopback(), access.port);
  const auto [connectError] = co_await stream.async_connect(endpoint, asTuple);
  if (connectError) co_return connectError;
  const auto message = toHttp(request, access);
  const auto [writeError, size] = co_await http::async_write(stream, message, asTuple);
  co_return writeError;
}

std::optional<std::string> requestedRoute(const std::string& body) {
  beast::error_code error;
  const auto answer = json::parse(body, error);
  if (error || !answer.is_object()) return std::nullopt;
  const auto* route = answer.get_object().if_contains("request");
  if (!route || !route->is_string()) return std::nullopt;
  return std::string(route->get_string());
}

}  // namespace

asio::awaitable<Result<Answer>> TrayClient::ask(Request request) {
  beast::tcp_stream stream(executor_);
  if (const auto error = co_await send(stream, request, access_)) co_return noAnswer(error);
  stream.expires_never();
  beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  parser.body_limit(mostBodyBytes);
  const auto [error, size] = co_await http::async_read(stream, buffer, parser, asTuple);
  if (error) co_return noAnswer(error);
  Answer answer{.status = static_cast<int>(parser.get().result_int()),
                .body = std::move(parser.get().body())};
  if (request.path == "/status") {
    if (const auto route = requestedRoute(answer.body)) routes_.remember(*route);
  }
  co_return answer;
}

}  // namespace zephyl::sandbox::desktop
