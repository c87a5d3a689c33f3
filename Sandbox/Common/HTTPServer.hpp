#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

namespace zephyl::sandbox {

using HTTPRequest = boost::beast::http::request<boost::beast::http::string_body>;
using HTTPResponse = boost::beast::http::response<boost::beast::http::string_body>;

HTTPResponse httpResponse(unsigned status, std::string_view contentType, std::string body);

/// Returns the path of a request's target, without the query.
std::string_view pathOf(const HTTPRequest& request);

/// Serves HTTP/1.1, one request after another per connection, with at most 8 KiB of header. Lives
/// on the thread of the acceptor's executor, and must live until that executor has stopped.
class HTTPServer {
 public:
  struct Options {
    /// Further connections are closed at once.
    std::size_t maxConnections;
    std::uint64_t maxBodyBytes;
    /// The time-out for receiving a request and for sending an answer.
    std::chrono::seconds requestTimeout;
    std::chrono::seconds answerTimeout;
  };
  struct Handlers {
    /// Answers a request. Returns nullopt if it has served the stream itself. Then the connection
    /// is closed.
    std::function<boost::asio::awaitable<std::optional<HTTPResponse>>(
        const HTTPRequest& request, boost::beast::tcp_stream& stream)>
        answer;
    /// The answer to an invalid request.
    std::function<HTTPResponse(unsigned status, std::string_view reason)> refuse;
  };

  HTTPServer(Options options, Handlers handlers)
      : options_(options), handlers_(std::move(handlers)) {}
  HTTPServer(const HTTPServer&) = delete;
  HTTPServer& operator=(const HTTPServer&) = delete;

  void start(boost::asio::ip::tcp::acceptor acceptor);

  /// Closes each connection when its current answer has been sent.
  void stop();
  [[nodiscard]] bool isStopping() const { return stopping_; }
  /// Returns whether no connection is left.
  [[nodiscard]] bool isIdle() const { return open_ == 0; }

 private:
  boost::asio::awaitable<void> serve(boost::asio::ip::tcp::socket socket);
  /// Returns whether the client may send another request.
  boost::asio::awaitable<bool> serveNext(boost::beast::tcp_stream& stream,
                                         boost::beast::flat_buffer& buffer);
  boost::asio::awaitable<bool> write(boost::beast::tcp_stream& stream, const HTTPRequest& request,
                                     HTTPResponse response);
  std::optional<HTTPResponse> refusalOf(boost::system::error_code error) const;

  Options options_;
  Handlers handlers_;
  std::size_t open_ = 0;
  bool stopping_ = false;
  /// The streams whose pending read can be cancelled.
  std::set<boost::beast::tcp_stream*> reading_;
};

}  // namespace zephyl::sandbox
