#include "Common/HTTPServer.hpp"

#include <utility>

#include <boost/beast/http.hpp>

#include "Common/Async.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::ip::tcp;

namespace {

constexpr std::uint32_t maxHeaderBytes = 8'192;

}  // namespace

HTTPResponse httpResponse(unsigned status, std::string_view contentType, std::string body) {
  HTTPResponse response(http::int_to_status(status), 11);
  response.set(http::field::content_type, contentType);
  response.set(http::field::cache_control, "no-store");
  response.body() = std::move(body);
  return response;
}

std::string_view pathOf(const HTTPRequest& request) {
  const std::string_view target(request.target().data(), request.target().size());
  return target.substr(0, target.find('?'));
}

void HTTPServer::start(tcp::acceptor acceptor) {
  spawnAcceptor(std::move(acceptor), options_.maxConnections,
                [this](tcp::socket socket) { return serve(std::move(socket)); });
}

void HTTPServer::stop() {
  stopping_ = true;
  for (auto* stream : reading_) stream->cancel();
}

asio::awaitable<void> HTTPServer::serve(tcp::socket socket) {
  ++open_;
  beast::tcp_stream stream(std::move(socket));
  beast::flat_buffer buffer;
  while (!stopping_ && co_await serveNext(stream, buffer)) {
  }
  reading_.insert(&stream);
  if (!stopping_) co_await drain(stream);
  reading_.erase(&stream);
  --open_;
}

asio::awaitable<bool> HTTPServer::serveNext(beast::tcp_stream& stream, beast::flat_buffer& buffer) {
  http::request_parser<http::string_body> parser;
  parser.header_limit(maxHeaderBytes);
  parser.body_limit(options_.maxBodyBytes);
  stream.expires_after(options_.requestTimeout);
  reading_.insert(&stream);
  const auto [error, size] = co_await http::async_read(stream, buffer, parser, asTuple);
  reading_.erase(&stream);
  const auto& request = parser.get();
  std::optional<HTTPResponse> response;
  if (error) {
    response = refusalOf(error);
  } else {
    response = co_await handlers_.answer(request, stream);
  }
  if (!response) co_return false;
  response->keep_alive(response->keep_alive() && request.keep_alive() && !error);
  co_return co_await write(stream, request, *std::move(response));
}

asio::awaitable<bool> HTTPServer::write(beast::tcp_stream& stream, const HTTPRequest& request,
                                        HTTPResponse response) {
  const bool again = response.keep_alive() && !stopping_;
  response.version(request.version());
  response.keep_alive(again);
  response.content_length(response.body().size());
  if (request.method() == http::verb::head) response.body().clear();
  stream.expires_after(options_.answerTimeout);
  const auto [error, size] = co_await http::async_write(stream, response, asTuple);
  co_return again && !error;
}

/// Returns nullopt if the client has disconnected or was too slow.
std::optional<HTTPResponse> HTTPServer::refusalOf(boost::system::error_code error) const {
  const boost::system::error_code parsing = http::error::bad_method;
  if (error.category() != parsing.category() || error == http::error::end_of_stream ||
      error == http::error::partial_message) {
    return std::nullopt;
  }
  if (error == http::error::body_limit) {
    return handlers_.refuse(413, "the request's body is too large");
  }
  if (error == http::error::header_limit) {
    return handlers_.refuse(431, "the request's header is too large");
  }
  return handlers_.refuse(400, "the request is not HTTP");
}

}  // namespace zephyl::sandbox
