#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "System/Clock.hpp"
#include "System/Result.hpp"

namespace zephyl {

/// Accepts TCP connections on 127.0.0.1 that carry one message each way: the peer sends one, its
/// end known to the owner alone, and gets one; then the connection is closed.
///
/// The listener has a thread of its own. All handlers run there, one at a time; they may wait,
/// and everybody waits with them. A silent or slow peer delays nobody. There is a limit to
/// connections; where it is reached the oldest that has not sent a whole message makes room, and
/// when there is none such, new ones wait to be accepted. Running out of descriptors or memory is
/// survived: accepting goes on a little later. A peer that takes nothing of its answer for
/// `sendTimeout` is given up, so that it does not keep its place.
///
/// What was received may be secret and is overwritten when it has served.
class MessageListener {
 private:
  class Server;

 public:
  /// A peer, to be answered once. Copies are the same peer; when the last one goes without an
  /// answer the connection is closed. May be used from any thread, and after the listener is gone:
  /// then nothing is sent.
  class Peer {
   public:
    /// Whether the peer's message was taken whole. If not, what is still arriving is read and
    /// dropped for a while, so that a reset does not destroy the answer on its way.
    enum class Received { whole, inPart };

    /// Sends `message` and closes.
    void send(std::string message, Received received = Received::whole) const;

   private:
    friend class Server;
    struct Ticket;
    explicit Peer(std::shared_ptr<Ticket> ticket) : ticket_(std::move(ticket)) {}

    std::shared_ptr<Ticket> ticket_;
  };

  enum class Verdict {
    incomplete,  ///< more is needed; the connection is closed when the peer has finished sending
    complete,    ///< no more is read
  };

  struct Options {
    std::uint16_t port = 0;        ///< 0: any
    std::string label;             ///< such as "com.example.purpose": its end names the thread
    std::size_t readSize = 16384;  ///< most bytes taken in one piece
    std::size_t maxConnections = 256;
    Duration sendTimeout = std::chrono::seconds(30);
  };
  struct Handlers {
    /// `received` is everything that the peer has sent so far. Called again with more until it
    /// says `complete`.
    std::function<Verdict(const Peer& peer, std::string_view received)> onReceived;
    /// The listener has failed for good.
    std::function<void(const Error&)> onFailed;
  };

  static Result<std::unique_ptr<MessageListener>> open(Options options, Handlers handlers);
  /// Closes everything; no handler runs afterwards. Waits for one that is running, so it must be
  /// able to end.
  ~MessageListener();
  MessageListener(const MessageListener&) = delete;
  MessageListener& operator=(const MessageListener&) = delete;

  [[nodiscard]] std::uint16_t port() const;
  /// Stops accepting; what is under way goes on. Does not wait.
  void cancel();

 private:
  explicit MessageListener(std::shared_ptr<Server> server);

  std::shared_ptr<Server> server_;
};

}  // namespace zephyl
