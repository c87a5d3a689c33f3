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

/// A whole answer.
struct ClientResponse {
  int status = 0;
  std::string body;
};

/// An exchange under way. Destroying or resetting the handle cancels it: from then on none of
/// its callbacks is started (one that is running is not waited for).
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
  /// Lets the exchange run on without a handle.
  void detach() { exchange_.reset(); }
  explicit operator bool() const { return exchange_ != nullptr; }

 private:
  std::shared_ptr<Exchange> exchange_;
};

/// Receives a streamed answer, line by line, on the reactor's thread. All three are set.
struct StreamHandlers {
  /// The status code; false ends the exchange (and `onEnd` follows, with nothing).
  std::function<bool(int status)> onStatus;
  /// A line without its end (LF, or CR LF), also when it is empty. A line longer than
  /// `maxLineBytes` is skipped. What is left without an end counts as a line only when the
  /// server ended the answer properly.
  std::function<void(std::string_view line)> onLine;
  /// Once, at the end: nothing when the server ended the answer, else what went wrong.
  std::function<void(std::optional<Error>)> onEnd;
};

/// Decides whether a connection may be used, knowing the numeric address and the port that it leads
/// to. An error ends the exchange. Runs on the reactor's thread and must be short.
using ConnectionCheck =
    std::function<std::optional<Error>(const std::string& address, std::uint16_t port)>;

/// An HTTP/1.1 client with the time-outs of its configuration. A cheap handle: copies share what
/// is behind it. Callable from any thread; callbacks come on the reactor's thread, never from
/// within the call, and must be short; they are let go there too. The reactor outlives every
/// session; what is still under way when it goes ends without a callback.
class HTTPSession {
 public:
  struct Configuration {
    /// Longest silence: while connecting, and between two pieces of the answer. Zero: no limit.
    Duration requestTimeout = std::chrono::seconds(60);
    /// Longest answer that `send` accepts, in bytes; a longer one is an error.
    std::size_t maxBodyBytes = 16UL << 20;
    /// Longest line that `stream` delivers, in bytes. As long as the longest answer, because a
    /// stream may report the same.
    std::size_t maxLineBytes = 16UL << 20;
    /// Checks each connection once it stands, before anything is sent on it. May be empty.
    ConnectionCheck onConnected = nullptr;
    /// Whether `send` keeps the connection of a GET open after its answer and uses it for the next
    /// GET to the same host and port. The check runs only when a connection is made.
    bool keepsConnection = false;
  };

  HTTPSession(Reactor& reactor, Configuration configuration);

  /// Sends `request` and delivers the whole answer, whatever its status, or the reason why there
  /// is none: refused, timed out, cut off, too long, not HTTP ("no response").
  HTTPTask send(ClientRequest request, std::function<void(Result<ClientResponse>)> done) const;

  /// Sends `request` and delivers the answer as it comes, however long it is. A stream without end
  /// needs a `request.timeout` of zero.
  HTTPTask stream(ClientRequest request, StreamHandlers handlers) const;

 private:
  Reactor* reactor_;
  Configuration configuration_;
  std::shared_ptr<KeptConnection> kept_;  ///< null unless connections are kept
};

}  // namespace zephyl
