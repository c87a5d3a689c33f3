#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// Accepts TCP connections on 127.0.0.1 that carry one message each way: the peer sends a message,
/// whose end only the owner recognises, receives one, and the connection is closed.
///
/// The listener has a thread of its own. All handlers run there, one at a time. They may wait, and
/// every other connection waits with them. A silent or slow peer delays no other peer.
///
/// The number of connections is limited. At the limit a new connection replaces the oldest one that
/// was refused and is being drained, else the oldest one that has not sent a whole message. If
/// there is neither, new connections wait to be accepted. When descriptors or memory run out,
/// accepting is retried a little later. A peer that accepts no byte of its answer for `sendTimeout`
/// is closed.
///
/// Received bytes may be secret and are overwritten when they are no longer needed.
class LoopbackServer {
 private:
  class Server;

 public:
  /// A peer, to be answered once. Copies are the same peer; when the last one goes without an
  /// answer the connection is closed. May be used from any thread, and after the listener is gone:
  /// then nothing is sent.
  class Peer {
   public:
    /// Sends `message` and closes the connection.
    void send(std::string message) const;
    /// Sends `message` and closes the connection; until then what the peer is still sending is read
    /// and dropped, for a limited time, so that a reset does not destroy the message on its way. A
    /// refused connection gives way to new ones.
    void refuse(std::string message) const;

   private:
    friend class Server;
    struct Ticket;
    explicit Peer(std::shared_ptr<Ticket> ticket) : ticket_(std::move(ticket)) {}
    void deliver(std::string message, bool refused) const;

    std::shared_ptr<Ticket> ticket_;
  };

  enum class Verdict {
    incomplete,  ///< more is needed; the connection is closed when the peer has finished sending
    complete,    ///< no more is needed
  };

  /// Reads the message of one connection. `received` is everything that the peer has sent so far;
  /// called again with more until it returns `complete`.
  using Reader = std::function<Verdict(const Peer& peer, std::string_view received)>;

  struct Options {
    std::uint16_t port = 0;        ///< 0: any
    std::string label;             ///< such as "com.example.purpose": its end names the thread
    std::size_t readSize = 16384;  ///< most bytes taken in one piece
    std::size_t maxConnections = 256;
    Duration sendTimeout = std::chrono::seconds(30);
  };
  struct Handlers {
    /// Makes the reader of a new connection, which lives as long as the connection at most.
    std::function<Reader()> onAccepted;
    /// The listener has failed for good.
    std::function<void(const Error&)> onFailed;
  };

  static Result<std::unique_ptr<LoopbackServer>> open(Options options, Handlers handlers);
  /// Closes everything; no handler runs afterwards. Waits for one that is running, so it must be
  /// able to end.
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] std::uint16_t port() const;
  /// Stops accepting; what is under way goes on. Does not wait.
  void cancel();

 private:
  explicit LoopbackServer(std::shared_ptr<Server> server);

  std::shared_ptr<Server> server_;
};

}  // namespace zephyl
