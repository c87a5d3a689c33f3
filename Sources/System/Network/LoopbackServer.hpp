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

/// Accepts TCP connections on 127.0.0.1. Each carries one message in each direction: the peer sends
/// a message, whose end only the owner can detect, receives one, and the connection is closed.
///
/// The listener has its own thread. All handlers run there, one at a time. While a handler waits,
/// all other connections wait, too. A silent or slow peer does not delay other peers.
///
/// The number of connections is limited. At the limit a new connection replaces the oldest refused
/// one that is being drained, or else the oldest one that has not sent a complete message. If there
/// is neither, new connections wait to be accepted. If descriptors or memory run out, accepting is
/// retried every 100 ms. If descriptors are still missing then, one connection is replaced in the
/// same way. A connection is closed if its peer accepts no byte of the answer for `sendTimeout`.
///
/// Received bytes may be secret. They are overwritten when they are no longer needed.
class LoopbackServer {
 private:
  class Server;

 public:
  /// A peer that expects one answer. Copies refer to the same peer. If the last copy is destroyed
  /// without an answer, the connection is closed. Callable from any thread. Does nothing after the
  /// listener is gone.
  class Peer {
   public:
    /// Sends `message` and closes the connection.
    void send(std::string message) const;
    /// Sends `message` and closes the connection. Until then, bytes that the peer is still sending
    /// are read and dropped for a limited time, so that a reset does not destroy the message in
    /// transit. New connections may replace a refused one.
    void refuse(std::string message) const;

   private:
    friend class Server;
    struct Ticket;
    explicit Peer(std::shared_ptr<Ticket> ticket) : ticket_(std::move(ticket)) {}
    void deliver(std::string message, bool refused) const;

    std::shared_ptr<Ticket> ticket_;
  };

  enum class Verdict {
    incomplete,  ///< more bytes are needed; the connection is closed at the end of input
    complete,    ///< no more bytes are needed
  };

  /// Reads the message of one connection. `received` contains all bytes that the peer has sent.
  /// Called again with more bytes until it returns `complete`.
  using Reader = std::function<Verdict(const Peer& peer, std::string_view received)>;

  struct Options {
    std::uint16_t port = 0;  ///< 0: any free port
    std::string label;       ///< such as "com.example.purpose"; the last part names the thread
    std::size_t readSize = 16384;  ///< the largest piece to read, in bytes
    std::size_t maxConnections = 256;
    Duration sendTimeout = std::chrono::seconds(30);
  };
  struct Handlers {
    /// Returns the reader of a new connection. The reader is destroyed with the connection at the
    /// latest.
    std::function<Reader()> onAccepted;
    /// Called when the listener has failed permanently.
    std::function<void(const Error&)> onFailed;
  };

  static Result<std::unique_ptr<LoopbackServer>> open(Options options, Handlers handlers);
  /// Closes all connections. No handler runs afterwards. Waits for a running handler, which must
  /// therefore be able to return.
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] std::uint16_t port() const;
  /// Stops accepting connections. Existing ones continue. Does not wait.
  void cancel();

 private:
  explicit LoopbackServer(std::shared_ptr<Server> server);

  std::shared_ptr<Server> server_;
};

}  // namespace zephyl
