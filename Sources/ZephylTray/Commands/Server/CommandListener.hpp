#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "System/Concurrency/Clock.hpp"
#include "ZephylTray/Commands/Protocol/CommandSocket.hpp"

namespace zephyl {

class Reactor;

/// Accepts connections of this user on the commands' socket. Each sends one line, and receives any
/// number of lines until either side closes the connection.
///
/// All input and output happens on the reactor's thread and never waits there: a client that sends
/// nothing, or takes nothing, delays nobody. Such a client is closed after `requestTimeout`, or
/// after `sendTimeout`, and earlier if the places for connections run out. Time is the system's.
///
/// Created and destroyed on the main thread; the reactor outlives it.
class CommandListener {
 private:
  class Server;

 public:
  /// The client at the other end of a connection. Copies are the same client. May be used on any
  /// thread; what is sent to a client that has gone is dropped.
  class Client {
   public:
    [[nodiscard]] std::uint64_t id() const { return id_; }
    /// Sends a line, which is given without its end.
    void send(std::string line) const { deliver(std::move(line), /*last=*/false); }
    /// The same, and closes the connection when the line has been sent.
    void finish(std::string line) const { deliver(std::move(line), /*last=*/true); }

   private:
    friend class Server;
    Client(std::weak_ptr<Server> server, std::uint64_t id) : server_(std::move(server)), id_(id) {}
    void deliver(std::string line, bool last) const;

    std::weak_ptr<Server> server_;
    std::uint64_t id_;
  };

  struct Options {
    std::size_t maxConnections = 32;
    std::size_t maxQueuedBytes = std::size_t{4}
                                 << 20;  ///< a client that lags behind more is closed
    Duration requestTimeout = std::chrono::seconds(10);
    Duration sendTimeout = std::chrono::seconds(30);
  };
  /// Both are called on the reactor's thread.
  struct Handlers {
    /// A client has sent its line, which is valid during the call.
    std::function<void(const Client&, std::string_view line)> onRequest;
    /// A client that has sent its line is gone.
    std::function<void(std::uint64_t id)> onClosed;
  };

  CommandListener(Reactor& reactor, CommandSocket socket, Options options, Handlers handlers);
  /// Closes all connections and removes the socket. No handler runs afterwards.
  ~CommandListener();
  CommandListener(const CommandListener&) = delete;
  CommandListener& operator=(const CommandListener&) = delete;

  [[nodiscard]] const std::string& path() const;

 private:
  std::shared_ptr<Server> server_;
};

}  // namespace zephyl
