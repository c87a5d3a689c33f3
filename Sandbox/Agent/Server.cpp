#include "Agent/Server.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/json.hpp>
#include <fmt/format.h>

#include "Agent/EventStream.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using namespace std::chrono_literals;
namespace {

constexpr std::size_t mostConnections = 256;
constexpr std::uint32_t mostHeaderBytes = 8'192;
constexpr std::uint64_t mostBodyBytes = 16'384;
constexpr std::size_t mostBytesDrained = 1'048'576;
constexpr auto requestPatience = 60s;
constexpr auto answerPatience = 10s;
constexpr auto drainPatience = 1s;
constexpr auto acceptRetry = 100ms;

ApiAnswer refusal(int status, std::string_view message) {
  return {.status = status,
          .body = boost::json::serialize(boost::json::object{{"error", message}})};
}

/// The answer to a request that could not be read; none when the client went away or was too slow.
std::optional<ApiAnswer> refusalOf(error_code error) {
  const error_code parsing = http::error::bad_method;
  if (error.category() != parsing.category() || error == http::error::end_of_stream ||
      error == http::error::partial_message) {
    return std::nullopt;
  }
  if (error == http::error::body_limit) return refusal(413, "the request's body is too large");
  if (error == http::error::header_limit) return refusal(431, "the request's header is too large");
  return refusal(400, "the request is not HTTP");
}

/// Whether a value of the header Host names this machine by a loopback name.
bool isLoopbackHost(std::string_view host) {
  const auto portStart = host.rfind(':');
  const bool hasPort = portStart != std::string_view::npos && !host.ends_with(']');
  const auto name = hasPort ? host.substr(0, portStart) : host;
  return name == "127.0.0.1" || name == "[::1]" || beast::iequals(name, "localhost");
}

/// Whether the request may come from a program of this machine. A browser names the host that a
/// page was loaded from and the page's origin, so that pages of other sites, also under a name that
/// was made to resolve to loopback, are told from the agent's own clients. These send no Origin.
bool isFromHere(const http::request<http::string_body>& request) {
  const auto host = request.find(http::field::host);
  if (host != request.end() && !isLoopbackHost(host->value())) return false;
  const auto origin = request.find(http::field::origin);
  if (origin == request.end()) return true;
  return host != request.end() && origin->value() == "http://" + std::string(host->value());
}

bool isEventStream(const http::request<http::string_body>& request) {
  const auto target = request.target();
  return request.method() == http::verb::get && target.substr(0, target.find('?')) == "/api/events";
}

}  // namespace

/// One connection: request and answer in turns, until the client has had enough or an event stream
/// takes over. The operation under way holds it.
class Server::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(tcp::socket socket, Agent& agent, Api& api, std::chrono::milliseconds streamKeepAlive,
          std::function<void()> onEnd)
      : stream_(std::move(socket)),
        agent_(agent),
        api_(api),
        streamKeepAlive_(streamKeepAlive),
        onEnd_(std::move(onEnd)) {}

  void start() { readRequest(); }

  void stop() {
    stopping_ = true;
    if (events_) events_->stop();
    if (reading_) stream_.cancel();
  }

 private:
  void readRequest() {
    parser_.emplace();
    parser_->header_limit(mostHeaderBytes);
    parser_->body_limit(mostBodyBytes);
    stream_.expires_after(requestPatience);
    reading_ = true;
    http::async_read(stream_, buffer_, *parser_,
                     [self = shared_from_this()](error_code error, std::size_t) {
                       self->reading_ = false;
                       self->onRequest(error);
                     });
  }

  void onRequest(error_code error) {
    const auto version = parser_->get().version();
    if (error) {
      if (auto answer = refusalOf(error)) {
        write(std::move(*answer), version, false);
      } else {
        drain();
      }
      return;
    }
    const auto request = parser_->release();
    if (!isFromHere(request)) {
      write(refusal(403, "only programs of this machine may ask"), version, false);
      return;
    }
    if (isEventStream(request)) {
      follow(version);
      return;
    }
    const bool isHead = request.method() == http::verb::head;
    api_.answer({.method = std::string(request.method_string()),
                 .target = std::string(request.target()),
                 .body = request.body()},
                [self = shared_from_this(), version, isHead,
                 keepAlive = request.keep_alive()](ApiAnswer answer) {
                  if (isHead) answer.body.clear();
                  self->write(std::move(answer), version, keepAlive);
                });
  }

  void write(ApiAnswer answer, unsigned version, bool keepAlive) {
    const auto status = http::int_to_status(static_cast<unsigned>(answer.status));
    auto& response = response_.emplace(status, version);
    response.set(http::field::content_type, "application/json");
    response.set(http::field::cache_control, "no-store");
    if (!answer.allow.empty()) response.set(http::field::allow, answer.allow);
    response.keep_alive(keepAlive && !stopping_);
    response.body() = std::move(answer.body);
    response.prepare_payload();
    stream_.expires_after(answerPatience);
    http::async_write(
        stream_, response,
        [self = shared_from_this()](error_code error, std::size_t) { self->onWritten(error); });
  }

  void onWritten(error_code error) {
    const bool again = !error && response_->keep_alive() && !stopping_;
    response_.reset();
    if (again) {
      readRequest();
    } else {
      drain();
    }
  }

  void follow(unsigned version) {
    events_ = std::make_shared<EventStream>(std::move(stream_), agent_, streamKeepAlive_,
                                            [weak = weak_from_this()] {
                                              if (const auto self = weak.lock()) self->onEnd_();
                                            });
    events_->start(version);
  }

  /// Closes the connection. What is still arriving is taken first: closing over it would destroy
  /// the answer on its way.
  void drain() {
    error_code ignored;
    stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
    stream_.expires_after(drainPatience);
    drainMore();
  }

  void drainMore() {
    if (stopping_ || drained_ > mostBytesDrained) {
      close();
      return;
    }
    reading_ = true;
    stream_.async_read_some(asio::buffer(rest_),
                            [self = shared_from_this()](error_code error, std::size_t size) {
                              self->reading_ = false;
                              self->drained_ += size;
                              if (error) {
                                self->close();
                              } else {
                                self->drainMore();
                              }
                            });
  }

  void close() {
    stream_.close();
    onEnd_();
  }

  beast::tcp_stream stream_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
  std::optional<http::response<http::string_body>> response_;
  std::array<char, 4096> rest_{};
  std::size_t drained_ = 0;
  std::shared_ptr<EventStream> events_;

  Agent& agent_;
  Api& api_;
  std::chrono::milliseconds streamKeepAlive_;
  std::function<void()> onEnd_;
  bool stopping_ = false;
  /// A read is under way that may be broken off.
  bool reading_ = false;
};

Outcome<tcp::acceptor> listenOn(asio::io_context& io, unsigned short port) {
  const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), port);
  tcp::acceptor acceptor(io);
  error_code error;
  acceptor.open(endpoint.protocol(), error);
  if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind(endpoint, error);
  if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (!error) return acceptor;
  const bool taken = error == asio::error::address_in_use;
  return internalError(fmt::format("cannot listen on 127.0.0.1:{}: {}", port,
                                   taken ? "another program has that port" : error.message()));
}

Server::Server(asio::io_context& io, tcp::acceptor acceptor, Agent& agent,
               std::chrono::milliseconds streamKeepAlive)
    : io_(io),
      acceptor_(std::move(acceptor)),
      acceptPause_(io),
      agent_(agent),
      api_(agent),
      streamKeepAlive_(streamKeepAlive) {
  acceptNext();
}

Server::~Server() = default;

void Server::acceptNext() {
  acceptor_.async_accept([this](error_code error, tcp::socket socket) {
    if (!acceptor_.is_open()) return;
    if (!error) {
      open(std::move(socket));
      acceptNext();
      return;
    }
    acceptPause_.expires_after(acceptRetry);
    acceptPause_.async_wait([this](error_code failure) {
      if (!failure) acceptNext();
    });
  });
}

void Server::open(tcp::socket socket) {
  if (sessions_.size() >= mostConnections) return;
  const auto id = ++lastSession_;
  // The end may come from deep inside the session, so forgetting it waits for the loop.
  const auto forget = [this, id] { asio::post(io_, [this, id] { sessions_.erase(id); }); };
  auto session =
      std::make_shared<Session>(std::move(socket), agent_, api_, streamKeepAlive_, forget);
  sessions_.emplace(id, session);
  session->start();
}

void Server::stop() {
  error_code ignored;
  acceptor_.close(ignored);
  acceptPause_.cancel();
  for (const auto& [id, session] : sessions_) session->stop();
}

}  // namespace zephyl::sandbox
