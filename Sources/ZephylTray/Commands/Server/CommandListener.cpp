#include "ZephylTray/Commands/Server/CommandListener.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <optional>
#include <utility>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <strings.h>
#include <sys/socket.h>

#include "System/Concurrency/Reactor.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"

namespace zephyl {

namespace asio = boost::asio;

namespace {

using Descriptor = asio::posix::stream_descriptor;
constexpr std::chrono::milliseconds acceptRetryDelay{200};

}  // namespace

/// The state on the reactor's thread. Its handlers hold it weakly.
class CommandListener::Server : public std::enable_shared_from_this<Server> {
 public:
  Server(Reactor& reactor, CommandSocket socket, Options options, Handlers handlers)
      : reactor_(reactor),
        path_(socket.path()),
        options_(options),
        handlers_(std::move(handlers)),
        socket_(std::move(socket)) {}

  void start();
  /// Closes all connections and removes the socket.
  void stop();
  [[nodiscard]] const std::string& path() const { return path_; }
  /// Callable from any thread.
  void deliver(std::uint64_t id, std::string line, bool last);

 private:
  /// Reads one line and passes it to the handler. Then reads only to detect that the peer has
  /// disconnected.
  struct Connection {
    Connection(asio::io_context& context, FileDescriptor descriptor)
        : socket(context, descriptor.release()), timer(context) {}

    Descriptor socket;
    asio::steady_timer timer;  // for the request, then for unsent bytes
    SecretString received;     // a request may hold a key
    std::string unsent;
    bool hasRequested = false;
    bool closesWhenSent = false;
    bool waitsToSend = false;
  };
  using Connections = std::map<std::uint64_t, Connection>;

  /// Wraps a handler so that it does nothing after an abort or after this is destroyed.
  template <typename Work>
  auto unlessAborted(Work work) {
    return [weak = weak_from_this(), work](const boost::system::error_code& error) {
      const auto self = weak.lock();
      if (self && !error && self->acceptor_) work(*self);
    };
  }
  void onConnection(std::uint64_t id, void (Server::*step)(std::uint64_t, Connection&));

  void accept();
  void acceptLater(int error);
  bool makeRoom();
  void add(FileDescriptor socket);
  void awaitInput(std::uint64_t id, Connection& connection);
  void receive(std::uint64_t id, Connection& connection);
  bool append(std::uint64_t id, Connection& connection, std::string_view piece);
  void transmit(std::uint64_t id, Connection& connection);
  void closeAfter(Duration limit, std::uint64_t id, Connection& connection);
  void closeIfExpired(std::uint64_t id, Connection& connection);
  static void disarm(Connection& connection);
  void close(std::uint64_t id);

  Reactor& reactor_;
  const std::string path_;
  const Options options_;
  const Handlers handlers_;
  // Used on the reactor's thread only:
  std::optional<CommandSocket> socket_;  // until `stop`, as is the next member
  std::optional<Descriptor> acceptor_;
  std::optional<asio::steady_timer> acceptTimer_;
  std::uint64_t lastId_ = 0;
  Connections connections_;  // oldest first
  std::array<char, 4096> scratch_{};
};

void CommandListener::Server::start() {
  reactor_.run([this] {
    acceptor_.emplace(reactor_.context(), ::dup(socket_->descriptor()));
    acceptTimer_.emplace(reactor_.context());
    accept();
  });
}

void CommandListener::Server::stop() {
  reactor_.run([this] {
    acceptor_.reset();
    acceptTimer_.reset();
    socket_.reset();
    connections_.clear();
  });
}

void CommandListener::Server::deliver(std::uint64_t id, std::string line, bool last) {
  reactor_.post([weak = weak_from_this(), id, last, line = std::move(line)] {
    const auto self = weak.lock();
    if (!self) return;
    const auto found = self->connections_.find(id);
    if (found == self->connections_.end() || found->second.closesWhenSent) return;
    auto& connection = found->second;
    if (connection.unsent.size() + line.size() > self->options_.maxQueuedBytes) {
      return self->close(id);
    }
    connection.unsent += line;
    connection.unsent += '\n';
    connection.closesWhenSent = last;
    if (!connection.waitsToSend) self->transmit(id, connection);
  });
}

/// Runs a step of a connection if the connection still exists.
void CommandListener::Server::onConnection(std::uint64_t id,
                                           void (Server::*step)(std::uint64_t, Connection&)) {
  const auto found = connections_.find(id);
  if (found != connections_.end()) (this->*step)(id, found->second);
}

void CommandListener::Server::accept() {
  const int socket =
      ::accept4(socket_->descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  const int error = socket < 0 ? errno : 0;
  if (socket >= 0) add(FileDescriptor(socket));
  acceptLater(error);
}

/// Accepts one connection per turn, so that other work of the reactor is not delayed.
void CommandListener::Server::acceptLater(int error) {
  const auto retry = unlessAborted([](Server& self) { self.accept(); });
  if (!isShortage(error)) return acceptor_->async_wait(Descriptor::wait_read, retry);
  acceptTimer_->expires_after(acceptRetryDelay);
  acceptTimer_->async_wait(retry);
}

/// Closes the oldest connection without a request, or else the oldest one that does not read its
/// answers. Returns whether another connection can be added.
bool CommandListener::Server::makeRoom() {
  if (connections_.size() < options_.maxConnections) return true;
  auto found = std::ranges::find_if(connections_,
                                    [](const auto& each) { return !each.second.hasRequested; });
  if (found == connections_.end()) {
    found = std::ranges::find_if(connections_,
                                 [](const auto& each) { return each.second.waitsToSend; });
  }
  if (found == connections_.end()) return false;
  close(found->first);
  return true;
}

void CommandListener::Server::add(FileDescriptor socket) {
  if (!CommandSocket::peerIsThisUser(socket.get())) {
    return log("refused a command from a program of another user");
  }
  if (!makeRoom()) return log("refused a command: too many commands at once");
  const auto id = ++lastId_;
  auto& connection =
      connections_.try_emplace(id, reactor_.context(), std::move(socket)).first->second;
  closeAfter(options_.requestTimeout, id, connection);
  receive(id, connection);
}

void CommandListener::Server::awaitInput(std::uint64_t id, Connection& connection) {
  connection.socket.async_wait(Descriptor::wait_read, unlessAborted([id](Server& self) {
                                 self.onConnection(id, &Server::receive);
                               }));
}

void CommandListener::Server::receive(std::uint64_t id, Connection& connection) {
  const auto count =
      ::recv(connection.socket.native_handle(), scratch_.data(), scratch_.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return awaitInput(id, connection);
  if (count <= 0) return close(id);
  const auto size = static_cast<std::size_t>(count);
  const bool isAlive =
      connection.hasRequested || append(id, connection, std::string_view(scratch_.data(), size));
  ::explicit_bzero(scratch_.data(), size);
  if (isAlive) awaitInput(id, connection);
}

/// Collects the request and passes it to the handler when it is complete. Returns whether the
/// connection stays open.
bool CommandListener::Server::append(std::uint64_t id, Connection& connection,
                                     std::string_view piece) {
  const auto end = piece.find('\n');
  connection.received.append(piece.substr(0, end));
  if (connection.received.size() >= maxCommandRequest) {
    close(id);
    return false;
  }
  if (end == std::string_view::npos) return true;
  connection.hasRequested = true;
  disarm(connection);
  const SecretString line = std::exchange(connection.received, {});
  handlers_.onRequest(Client(weak_from_this(), id), line);
  return true;
}

void CommandListener::Server::transmit(std::uint64_t id, Connection& connection) {
  connection.waitsToSend = false;
  while (!connection.unsent.empty()) {
    const auto count = ::send(connection.socket.native_handle(), connection.unsent.data(),
                              connection.unsent.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno != EAGAIN) return close(id);
    if (count < 0) {
      connection.waitsToSend = true;
      closeAfter(options_.sendTimeout, id, connection);
      return connection.socket.async_wait(Descriptor::wait_write, unlessAborted([id](Server& self) {
                                            self.onConnection(id, &Server::transmit);
                                          }));
    }
    connection.unsent.erase(0, static_cast<std::size_t>(count));
  }
  disarm(connection);
  if (connection.closesWhenSent) close(id);
}

/// Closes the connection after `limit`, unless the timer is disarmed or restarted before.
void CommandListener::Server::closeAfter(Duration limit, std::uint64_t id, Connection& connection) {
  connection.timer.expires_after(limit);
  connection.timer.async_wait(
      unlessAborted([id](Server& self) { self.onConnection(id, &Server::closeIfExpired); }));
}

/// The timer may have been restarted after its handler was queued.
void CommandListener::Server::closeIfExpired(std::uint64_t id, Connection& connection) {
  if (connection.timer.expiry() <= std::chrono::steady_clock::now()) close(id);
}

void CommandListener::Server::disarm(Connection& connection) {
  connection.timer.expires_at(asio::steady_timer::time_point::max());
}

void CommandListener::Server::close(std::uint64_t id) {
  const auto found = connections_.find(id);
  if (found == connections_.end()) return;
  const bool hadRequested = found->second.hasRequested;
  connections_.erase(found);
  if (hadRequested) handlers_.onClosed(id);
}

void CommandListener::Client::deliver(std::string line, bool last) const {
  if (const auto server = server_.lock()) server->deliver(id_, std::move(line), last);
}

CommandListener::CommandListener(Reactor& reactor, CommandSocket socket, Options options,
                                 Handlers handlers)
    : server_(std::make_shared<Server>(reactor, std::move(socket), options, std::move(handlers))) {
  server_->start();
}

CommandListener::~CommandListener() {
  server_->stop();
}

const std::string& CommandListener::path() const {
  return server_->path();
}

}  // namespace zephyl
