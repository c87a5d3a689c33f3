#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

class KeptConnection;
class Reactor;

/// A request to an HTTP server.
struct ClientRequest {
  std::string method = "GET";
  std::string url;  ///< absolute, scheme "http"
  std::optional<std::string> contentType;
  std::string body;
  Duration timeout = std::chrono::seconds(60);  ///< for the whole exchange; zero: no limit
};

/// A complete answer.
struct ClientResponse {
  int status = 0;
  std::string body;
};

/// A running exchange. Destroying or resetting the handle cancels it: no further callback is
/// started. A running callback is not waited for.
class HTTPTask {
 public:
  class Exchange {
   public:
    virtual ~Exchange() = default;
    Exchange() = default;
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    virtual void cancel() = 0;
  };

  HTTPTask() = default;
  explicit HTTPTask(std::shared_ptr<Exchange> exchange) : exchange_(std::move(exchange)) {}
  HTTPTask(HTTPTask&&) = default;
  HTTPTask& operator=(HTTPTask&& other) noexcept;
  HTTPTask(const HTTPTask&) = delete;
  HTTPTask& operator=(const HTTPTask&) = delete;
  ~HTTPTask() { cancel(); }

  void cancel();
  /// Lets the exchange continue without a handle.
  void detach() { exchange_.reset(); }
  explicit operator bool() const { return exchange_ != nullptr; }

 private:
  std::shared_ptr<Exchange> exchange_;
};

/// Receives a streamed answer line by line on the reactor's thread. All three functions are
/// required.
struct StreamHandlers {
  /// Called with the status code. Returning false ends the exchange, and `onEnd` follows with
  /// nullopt.
  std::function<bool(int status)> onStatus;
  /// Called with each line without its end (LF or CR LF), also with empty lines. Lines longer than
  /// `maxLineBytes` are skipped. An unterminated last line is delivered only if the server ended
  /// the answer properly.
  std::function<void(std::string_view line)> onLine;
  /// Called once, at the end, with the error, or with nullopt if the server ended the answer.
  std::function<void(std::optional<Error>)> onEnd;
};

/// Decides whether a connection to a numeric address and port may be used. An error ends the
/// exchange. Runs on the reactor's thread and must be short.
using ConnectionCheck =
    std::function<std::optional<Error>(const std::string& address, std::uint16_t port)>;

/// An HTTP/1.1 client. A cheap handle: copies share the same reactor and configuration. Callable
/// from any thread. Callbacks are called and destroyed on the reactor's thread, never within the
/// call, and must be short. The reactor must outlive every session. Exchanges that are running when
/// the reactor is destroyed end without a callback.
class HTTPSession {
 public:
  struct Configuration {
    /// The longest silence while connecting and between two pieces of the answer. Zero: no limit.
    Duration requestTimeout = std::chrono::seconds(60);
    /// The largest body that `send` accepts, in bytes. A larger one is an error.
    std::size_t maxBodyBytes = 16UL << 20;
    /// The longest line that `stream` delivers, in bytes. Equals the largest body, because a stream
    /// may report the same data.
    std::size_t maxLineBytes = 16UL << 20;
    /// Checks each connection before anything is sent on it. May be empty.
    ConnectionCheck onConnected = nullptr;
    /// Whether `send` keeps the connection of a GET open after its answer and uses it for the next
    /// GET to the same host and port. The check runs only when a connection is made.
    bool keepsConnection = false;
  };

  HTTPSession(Reactor& reactor, Configuration configuration);

  /// Sends `request` and delivers the whole answer, whatever its status, or the reason for its
  /// absence: refused, timed out, cut off, too long, or not HTTP ("no response").
  HTTPTask send(ClientRequest request, std::function<void(Result<ClientResponse>)> done) const;

  /// Sends `request` and delivers the answer while it arrives, at any length. An endless stream
  /// requires a `request.timeout` of zero.
  HTTPTask stream(ClientRequest request, StreamHandlers handlers) const;

 private:
  Reactor* reactor_;
  Configuration configuration_;
  std::shared_ptr<KeptConnection> kept_;  ///< null unless connections are kept
};

}  // namespace zephyl
