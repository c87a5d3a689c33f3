#include "System/Network/HTTPExchange.hpp"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_static_buffer.hpp>
#include <boost/beast/http/basic_parser.hpp>

#include <sys/socket.h>

#include "System/Concurrency/Reactor.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Network/HTTPDestination.hpp"
#include "System/Network/KeptConnection.hpp"

namespace zephyl {

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;

/// The number of bytes of an answer that are read at a time, which also limits the size of a
/// header.
constexpr std::size_t pieceBytes = 16UL << 10;

class Connection;

/// The caller's handle. The connection is kept alive by its pending operations alone, so it is
/// destroyed with the reactor even if a handle remains.
class Handle final : public HTTPTask::Exchange {
 public:
  explicit Handle(asio::io_context& context) : context_(context) {}

  void attach(std::weak_ptr<Connection> connection) { connection_ = std::move(connection); }
  void cancel() override;
  /// Returns whether the exchange was cancelled. Must be checked before each callback.
  [[nodiscard]] bool isCancelled() const { return cancelled_; }

 private:
  asio::io_context& context_;
  std::weak_ptr<Connection> connection_;
  std::atomic<bool> cancelled_ = false;
};

/// Parses an answer and passes it to the receiver, until the receiver refuses the body.
class AnswerParser final : public http::basic_parser<false> {
 public:
  AnswerParser(HTTPReceiver& receiver, const Handle& handle,
               std::optional<std::size_t> maxBodyBytes)
      : receiver_(receiver), handle_(handle) {
    eager(true);
    if (maxBodyBytes) {
      body_limit(*maxBodyBytes);
    } else {
      body_limit(boost::none);
    }
  }

  /// Returns whether a complete interim answer, such as "100 Continue", was parsed. The final
  /// answer follows.
  [[nodiscard]] bool isInterim() const { return is_done() && isInterimStatus(); }
  /// Returns whether the receiver does not want the body.
  [[nodiscard]] bool isRefused() const { return refused_; }

 private:
  using View = boost::beast::string_view;

  [[nodiscard]] bool isInterimStatus() const { return status_ / 100 == 1 && status_ != 101; }

  std::size_t pass(std::string_view bytes, error_code& error) {
    const auto size = bytes.size();
    while (!bytes.empty() && !handle_.isCancelled()) receiver_.receiveBody(bytes);
    if (!bytes.empty()) error = asio::error::operation_aborted;
    return size;
  }

  void on_response_impl(int status, View, int, error_code&) override { status_ = status; }
  void on_header_impl(error_code& error) override {
    if (isInterimStatus() || handle_.isCancelled()) return;
    refused_ = !receiver_.receiveStatus(status_);
    if (refused_) error = asio::error::operation_aborted;
  }
  std::size_t on_body_impl(View bytes, error_code& error) override {
    return pass({bytes.data(), bytes.size()}, error);
  }
  std::size_t on_chunk_body_impl(std::uint64_t, View bytes, error_code& error) override {
    return pass({bytes.data(), bytes.size()}, error);
  }
  void on_request_impl(http::verb, View, View, int, error_code&) override {}
  void on_field_impl(http::field, View, View, error_code&) override {}
  void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code&) override {}
  void on_chunk_header_impl(std::uint64_t, View, error_code&) override {}
  void on_finish_impl(error_code&) override {}

  HTTPReceiver& receiver_;
  const Handle& handle_;
  int status_ = 0;
  bool refused_ = false;
};

/// Parses an answer piece by piece, skips interim answers, and passes the final one to the
/// receiver.
class AnswerReader {
 public:
  AnswerReader(HTTPReceiver& receiver, const Handle& handle,
               std::optional<std::size_t> maxBodyBytes)
      : receiver_(receiver), handle_(handle), maxBodyBytes_(maxBodyBytes) {
    renewParser();
  }

  /// Returns the memory for the next piece.
  [[nodiscard]] asio::mutable_buffer space() {
    return buffer_.prepare(buffer_.max_size() - buffer_.size());
  }
  /// Parses a piece of `size` bytes in that memory. Returns success if more are needed.
  error_code received(std::size_t size);
  /// Parses the end of the connection.
  error_code connectionEnded();

  [[nodiscard]] std::optional<std::size_t> maxBodyBytes() const { return maxBodyBytes_; }
  [[nodiscard]] bool hasBegun() const { return parser_->got_some(); }
  [[nodiscard]] bool hasHead() const { return parser_->is_header_done(); }
  [[nodiscard]] bool isComplete() const { return parser_->is_done(); }
  /// Returns whether the receiver does not want the body.
  [[nodiscard]] bool isRefused() const { return parser_->isRefused(); }
  /// Returns whether another exchange may follow on the connection.
  [[nodiscard]] bool mayReuseConnection() const {
    return parser_->keep_alive() && buffer_.size() == 0;
  }

 private:
  void renewParser() { parser_.emplace(receiver_, handle_, maxBodyBytes_); }

  HTTPReceiver& receiver_;
  const Handle& handle_;
  const std::optional<std::size_t> maxBodyBytes_;
  std::optional<AnswerParser> parser_;
  boost::beast::flat_static_buffer<pieceBytes> buffer_;
  std::size_t headBytes_ = 0;  // read until the header was complete, including interim answers
};

error_code AnswerReader::received(std::size_t size) {
  buffer_.commit(size);
  if (!hasHead()) headBytes_ += size;
  error_code error;
  buffer_.consume(parser_->put(buffer_.data(), error));
  while (!error && parser_->isInterim()) {
    renewParser();
    buffer_.consume(parser_->put(buffer_.data(), error));
  }
  if (error != http::error::need_more) return error;
  const bool headTooLong = !hasHead() && headBytes_ >= pieceBytes;
  if (headTooLong || buffer_.size() == buffer_.max_size()) return http::error::header_limit;
  return {};
}

error_code AnswerReader::connectionEnded() {
  error_code error = http::error::partial_message;
  if (hasBegun()) parser_->put_eof(error);
  return error;
}

/// The time limits of an exchange, which begins with its construction.
class TimeLimits {
 public:
  explicit TimeLimits(const HTTPLimits& limits) : silence_(limits.silence), whole_(limits.whole) {}

  /// Must be called when a piece was sent or received.
  void progressed() { quietSince_ = SteadyClock::now(); }
  /// Returns when the nearest limit is reached, or `Instant::max()` if there is none.
  [[nodiscard]] Instant end() const { return std::min(silenceEnd(), wholeEnd()); }
  [[nodiscard]] Instant wholeEnd() const {
    return whole_ == Duration::zero() ? Instant::max() : started_ + whole_;
  }

 private:
  using SteadyClock = std::chrono::steady_clock;

  [[nodiscard]] Instant silenceEnd() const {
    return silence_ == Duration::zero() ? Instant::max() : quietSince_ + silence_;
  }

  const Duration silence_;
  const Duration whole_;
  const Instant started_ = SteadyClock::now();
  Instant quietSince_ = started_;
};

/// One request and its answer, on a new connection or on a kept one. Reactor's thread only.
class Connection final : public std::enable_shared_from_this<Connection> {
 public:
  Connection(asio::io_context& context, std::shared_ptr<Handle> handle, const HTTPLimits& limits,
             ConnectionCheck check, std::unique_ptr<HTTPReceiver> receiver,
             std::shared_ptr<KeptConnection> kept)
      : socket_(context),
        timer_(context),
        limits_(limits),
        check_(std::move(check)),
        handle_(std::move(handle)),
        receiver_(std::move(receiver)),
        answer_(*receiver_, *handle_, limits.bodyBytes),
        kept_(std::move(kept)) {}

  void start(const ClientRequest& request);
  /// Ends the exchange without a callback.
  void stop();

 private:
  using SteadyClock = std::chrono::steady_clock;
  enum class Phase { connecting, exchanging, ended };

  [[nodiscard]] bool isEnded() const { return phase_ == Phase::ended; }
  bool reuseConnection();
  void resolve();
  void connect();
  error_code open(const tcp& protocol);
  [[nodiscard]] std::optional<Error> checkPeer() const;
  void exchange();
  void read();
  void received(error_code error, std::size_t size);
  void proceed(error_code error);
  void keepConnection();

  void watch();
  void checkTime();

  void couldNotConnect(std::string_view reason);
  [[nodiscard]] Error describe(error_code error) const;
  void finish(std::optional<Error> error);

  tcp::socket socket_;
  asio::steady_timer timer_;
  std::optional<tcp::resolver> resolver_;
  TimeLimits limits_;
  const ConnectionCheck check_;
  const std::shared_ptr<Handle> handle_;
  std::unique_ptr<HTTPReceiver> receiver_;
  AnswerReader answer_;
  const std::shared_ptr<KeptConnection> kept_;  ///< null unless connections are kept
  HTTPDestination destination_;
  std::string request_;
  std::vector<tcp::endpoint> endpoints_;  ///< not tried yet, the next one last
  Phase phase_ = Phase::connecting;
  bool reused_ = false;   ///< the connection has carried other exchanges before
  bool written_ = false;  ///< the whole request
};

void Handle::cancel() {
  if (cancelled_.exchange(true)) return;
  if (auto connection = connection_.lock())
    asio::post(context_, [connection = std::move(connection)] { connection->stop(); });
}

void Connection::start(const ClientRequest& request) {
  if (handle_->isCancelled()) return;
  watch();
  auto destination = HTTPDestination::parse(request.url);
  if (!destination) return finish(Error{"not an http address: ", request.url});
  destination_ = std::move(*destination);
  request_ = destination_.wireForm(request, kept_ != nullptr);
  if (!reuseConnection()) resolve();
}

bool Connection::reuseConnection() {
  auto socket = kept_ ? kept_->release(destination_.authority) : std::nullopt;
  if (!socket) return false;
  socket_ = std::move(*socket);
  reused_ = true;
  exchange();
  return true;
}

void Connection::resolve() {
  error_code notNumeric;
  const auto address = asio::ip::make_address(destination_.host, notNumeric);
  if (!notNumeric) {
    endpoints_ = {tcp::endpoint(address, destination_.port)};
    return connect();
  }
  resolver_.emplace(socket_.get_executor())
      .async_resolve(destination_.host, std::to_string(destination_.port),
                     tcp::resolver::numeric_service,
                     [self = shared_from_this()](error_code error,
                                                 const tcp::resolver::results_type& results) {
                       if (self->isEnded()) return;
                       if (error) return self->couldNotConnect(error.message());
                       for (const auto& result : results)
                         self->endpoints_.insert(self->endpoints_.begin(), result);
                       self->connect();
                     });
}

void Connection::connect() {
  const auto endpoint = endpoints_.back();
  endpoints_.pop_back();
  const auto connected = [self = shared_from_this()](error_code error) {
    if (self->isEnded()) return;
    if (!error) return self->exchange();
    if (self->endpoints_.empty()) return self->couldNotConnect(error.message());
    self->connect();
  };
  if (const auto error = open(endpoint.protocol())) return connected(error);
  socket_.async_connect(endpoint, connected);
}

error_code Connection::open(const tcp& protocol) {
  error_code error;
  socket_.close(error);
  // Asio does not set close-on-exec when it opens a socket.
  FileDescriptor descriptor(::socket(protocol.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!descriptor) return {errno, boost::system::system_category()};
  socket_.assign(protocol, descriptor.get(), error);
  if (!error) descriptor.release();
  return error;
}

std::optional<Error> Connection::checkPeer() const {
  if (!check_ || reused_) return std::nullopt;
  error_code error;
  const auto peer = socket_.remote_endpoint(error);
  if (error) return Error{"lost the connection to ", destination_.authority, ": ", error.message()};
  return check_(peer.address().to_string(), peer.port());
}

void Connection::exchange() {
  phase_ = Phase::exchanging;
  if (auto refusal = checkPeer()) return finish(std::move(refusal));
  limits_.progressed();
  written_ = false;
  error_code ignored;
  socket_.set_option(tcp::no_delay(true), ignored);
  // The server may answer before it has read the request. If writing fails, the result of reading
  // gives the reason.
  asio::async_write(socket_, asio::buffer(request_),
                    [self = shared_from_this()](error_code error, std::size_t) {
                      if (error) return;
                      self->written_ = true;
                      self->limits_.progressed();
                    });
  read();
}

void Connection::read() {
  socket_.async_read_some(answer_.space(),
                          [self = shared_from_this()](error_code error, std::size_t size) {
                            if (!self->isEnded()) self->received(error, size);
                          });
}

void Connection::received(error_code error, std::size_t size) {
  limits_.progressed();
  if (error && std::exchange(reused_, false) && !answer_.hasBegun()) {
    // The server has ended the kept connection, which it may at any time.
    phase_ = Phase::connecting;
    return resolve();
  }
  if (!error) {
    error = answer_.received(size);
  } else if (error == asio::error::eof) {
    error = answer_.connectionEnded();
  }
  proceed(error);
}

void Connection::proceed(error_code error) {
  if (handle_->isCancelled()) return stop();
  if (answer_.isRefused()) return finish(std::nullopt);
  if (error) return finish(describe(error));
  if (!answer_.isComplete()) return read();
  receiver_->finishBody();
  keepConnection();
  finish(std::nullopt);
}

void Connection::keepConnection() {
  if (!kept_ || !written_ || !answer_.mayReuseConnection()) return;
  kept_->keep(destination_.authority, std::move(socket_));
}

/// One timer watches both limits. It is not restarted for every piece that arrives. When it fires,
/// it checks the time of the last piece.
void Connection::watch() {
  const auto next = limits_.end();
  if (next == Instant::max()) return;
  timer_.expires_at(next);
  timer_.async_wait([self = shared_from_this()](error_code error) {
    if (!error && !self->isEnded()) self->checkTime();
  });
}

void Connection::checkTime() {
  const auto now = SteadyClock::now();
  if (now < limits_.end()) return watch();
  if (phase_ == Phase::connecting) return couldNotConnect("timed out");
  if (now >= limits_.wholeEnd())
    return finish(Error{"timed out: ", destination_.authority, " did not finish in time"});
  finish(Error{"timed out waiting for ", destination_.authority});
}

void Connection::couldNotConnect(std::string_view reason) {
  Error error{"could not connect to ", destination_.authority, ": ", reason};
  error.nothingSent = true;
  finish(std::move(error));
}

Error Connection::describe(error_code error) const {
  if (error == http::error::body_limit)
    return {destination_.authority, " sent more than ", std::to_string(*answer_.maxBodyBytes()),
            " bytes"};
  if (error.category() == boost::system::system_category())
    return {"lost the connection to ", destination_.authority, ": ", error.message()};
  if (!answer_.hasHead()) return {"no response"};
  if (error == http::error::partial_message)
    return {destination_.authority, " closed the connection before the end of its answer"};
  return {destination_.authority, " sent a malformed answer"};
}

void Connection::finish(std::optional<Error> error) {
  const auto receiver = std::move(receiver_);
  stop();
  if (!handle_->isCancelled()) receiver->end(std::move(error));
}

void Connection::stop() {
  phase_ = Phase::ended;
  error_code ignored;
  socket_.close(ignored);
  timer_.cancel();
  if (resolver_) resolver_->cancel();
  receiver_.reset();
}

}  // namespace

std::shared_ptr<HTTPTask::Exchange> startExchange(Reactor& reactor, ClientRequest request,
                                                  const HTTPLimits& limits, ConnectionCheck check,
                                                  std::unique_ptr<HTTPReceiver> receiver,
                                                  std::shared_ptr<KeptConnection> kept) {
  auto handle = std::make_shared<Handle>(reactor.context());
  auto connection = std::make_shared<Connection>(
      reactor.context(), handle, limits, std::move(check), std::move(receiver), std::move(kept));
  handle->attach(connection);
  reactor.post([connection = std::move(connection), request = std::move(request)] {
    connection->start(request);
  });
  return handle;
}

}  // namespace zephyl
