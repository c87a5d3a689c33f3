#include "Tailnet/Client/HttpServer.hpp"

#include <chrono>
#include <cstdint>
#include <utility>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using namespace std::chrono_literals;
namespace {

using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;

constexpr std::uint32_t mostHeaderBytes = 8'192;
constexpr std::uint64_t mostBodyBytes = 4'096;
constexpr auto patience = 30s;

Response respond(const Request& request, http::status status, Content content) {
  Response response(status, request.version());
  response.set(http::field::content_type, content.type);
  response.set(http::field::cache_control, "no-store");
  response.set(http::field::x_frame_options, "DENY");
  response.set("X-Content-Type-Options", "nosniff");
  response.content_length(content.body.size());
  response.keep_alive(request.keep_alive());
  if (request.method() != http::verb::head) response.body() = std::move(content.body);
  return response;
}

Response respond(const Request& request, http::status status) {
  const auto reason = http::obsolete_reason(status);
  return respond(request, status, {.type = "text/plain", .body = std::string(reason) + '\n'});
}

Response answer(const Request& request, const Site& site) {
  if (request.method() != http::verb::get && request.method() != http::verb::head) {
    auto response = respond(request, http::status::method_not_allowed);
    response.set(http::field::allow, "GET, HEAD");
    return response;
  }
  const auto target = request.target();
  auto content = site(target.substr(0, target.find('?')));
  if (!content) return respond(request, http::status::not_found);
  return respond(request, http::status::ok, *std::move(content));
}

bool isMalformed(beast::error_code error) {
  const beast::error_code parsing = http::error::bad_method;
  return error.category() == parsing.category() && error != http::error::end_of_stream &&
         error != http::error::partial_message;
}

asio::awaitable<bool> write(beast::tcp_stream& stream, Response response) {
  stream.expires_after(patience);
  const bool again = response.keep_alive();
  const auto [error, size] = co_await http::async_write(stream, response, asTuple);
  co_return again && !error;
}

/// Whether the client may ask again.
asio::awaitable<bool> serveOne(beast::tcp_stream& stream, beast::flat_buffer& buffer,
                               const Site& site) {
  http::request_parser<http::string_body> parser;
  parser.header_limit(mostHeaderBytes);
  parser.body_limit(mostBodyBytes);
  stream.expires_after(patience);
  const auto [error, size] = co_await http::async_read(stream, buffer, parser, asTuple);
  if (!error) co_return co_await write(stream, answer(parser.get(), site));
  if (isMalformed(error)) {
    auto refusal = respond({}, http::status::bad_request);
    refusal.keep_alive(false);
    co_await write(stream, std::move(refusal));
  }
  co_return false;
}

}  // namespace

asio::awaitable<void> serveHttp(asio::ip::tcp::socket socket, std::shared_ptr<const Site> site) {
  beast::tcp_stream stream(std::move(socket));
  beast::flat_buffer buffer;
  while (co_await serveOne(stream, buffer, *site)) {
  }
  co_await sayFarewell(stream);
}

}  // namespace zephyl::sandbox
