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

/// Accepts connections of this user on the command socket. Each client sends one line and receives
/// any number of lines until either side closes the connection.
///
/// All input and output happens on the reactor's thread without waiting there, so a client that
/// sends or reads nothing delays no other client. Such a client is disconnected after
/// `requestTimeout` or `sendTimeout`, and earlier if the limit of connections is reached. Uses the
/// system's clock.
///
/// Must be created and destroyed on the main thread. The reactor must outlive it.
class CommandListener {
 private:
  class Server;

 public:
  /// The client of a connection. Copies refer to the same client. Callable from any thread. Lines
  /// to a client that has disconnected are dropped.
  class Client {
   public:
    [[nodiscard]] std::uint64_t id() const { return id_; }
    /// Sends a line, given without its end.
    void send(std::string line) const { deliver(std::move(line), /*last=*/false); }
    /// Does the same, and closes the connection when the line was sent.
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
                                 << 20;  ///< a client with more unread bytes is disconnected
    Duration requestTimeout = std::chrono::seconds(10);
    Duration sendTimeout = std::chrono::seconds(30);
  };
  /// Called on the reactor's thread.
  struct Handlers {
    /// Called when a client has sent its line, which is valid during the call.
    std::function<void(const Client&, std::string_view line)> onRequest;
    /// Called when a client that has sent its line has disconnected.
    std::function<void(std::uint64_t id)> onClosed;
  };

  CommandListener(Reactor& reactor, CommandSocket socket, Options options, Handlers handlers);
  /// Closes all connections and removes the socket. No handler is called afterwards.
  ~CommandListener();
  CommandListener(const CommandListener&) = delete;
  CommandListener& operator=(const CommandListener&) = delete;

  [[nodiscard]] const std::string& path() const;

 private:
  std::shared_ptr<Server> server_;
};

}  // namespace zephyl
