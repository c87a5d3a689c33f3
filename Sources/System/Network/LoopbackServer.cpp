#include "System/Network/LoopbackServer.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "System/Concurrency/Reactor.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

namespace asio = boost::asio;

namespace {

constexpr int acceptsPerTurn = 8;
constexpr std::chrono::milliseconds acceptRetryDelay{100};
constexpr std::chrono::seconds drainTime{2};
constexpr std::size_t drainBytes = 1UL << 20;
constexpr int checksPerSendTimeout = 6;

using Identifier = std::uint64_t;
using Descriptor = asio::posix::stream_descriptor;

Result<FileDescriptor> listenOnLoopback(std::uint16_t port) {
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) return systemError("socket", errno);
  const int on = 1;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto where = "127.0.0.1:" + std::to_string(port);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(socket.get(), SOMAXCONN) != 0) {
    return systemError(where, errno);
  }
  return socket;
}

/// Returns whether the error concerns the listening socket and not a single connection.
bool isFatal(int error) {
  return error == EBADF || error == EINVAL || error == ENOTSOCK || error == EOPNOTSUPP;
}

bool hasUnreadBytes(int socket) {
  int count = 0;
  return ::ioctl(socket, FIONREAD, &count) == 0 && count > 0;
}

/// Returns the number of sent bytes that the peer has not acknowledged.
std::size_t unacknowledgedBytes(int socket) {
  int count = 0;
  return ::ioctl(socket, SIOCOUTQ, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

/// Returns the part of "com.example.purpose" that names the thread.
std::string threadName(const std::string& label) {
  return label.substr(label.rfind('.') + 1);
}

}  // namespace

struct LoopbackServer::Peer::Ticket {
  Ticket(std::weak_ptr<Server> listener, Identifier connection)
      : server(std::move(listener)), id(connection) {}
  ~Ticket();
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  const std::weak_ptr<Server> server;
  const Identifier id;
  std::atomic<bool> answered = false;
};

/// The state of the listener's thread. Stays alive, closed, while a `Peer` exists.
class LoopbackServer::Server : public std::enable_shared_from_this<Server> {
 public:
  Server(Options options, Handlers handlers, FileDescriptor socket);

  void start();
  void cancel();
  void close();
  [[nodiscard]] std::uint16_t port() const;

  /// Operations of peers. Callable from any thread.
  void deliver(Identifier id, std::string message, bool refused);
  void drop(Identifier id);

 private:
  /// Reads until the message is complete, then waits for the owner's answer, sends it and, if the
  /// peer may still be sending, drains.
  struct Connection {
    enum class State { reading, waiting, sending, draining, ended };

    Connection(FileDescriptor descriptor, Peer owner, Reader messageReader)
        : socket(std::move(descriptor)), peer(std::move(owner)), reader(std::move(messageReader)) {}
    ~Connection() {
      if (peer) peer->ticket_->answered = true;  // the ticket has no connection to end
      if (waiter) waiter->release();
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] bool isDrainingAfterRefusal() const {
      return state == State::draining && refused;
    }

    FileDescriptor socket;
    State state = State::reading;
    std::optional<Peer> peer;  // until the message is complete
    Reader reader;
    SecretString received;  // a request may hold a key
    std::string unsent;
    std::size_t unacknowledged = 0;  // bytes of the answer at the last check
    int stalledChecks = 0;
    bool refused = false;
    std::size_t drained = 0;
    std::optional<Descriptor> waiter;  // made for the first wait
    std::optional<asio::steady_timer> timer;
  };
  using Step = void (Server::*)(Identifier, Connection&);

  void onThread(Task task);
  void acceptPending(bool mayEvict = false);
  void acceptLater(int error);
  [[nodiscard]] std::map<Identifier, Connection>::iterator evictable();
  [[nodiscard]] bool isFull() const { return connections_.size() >= options_.maxConnections; }
  void acceptIfWaitingForRoom();
  void add(FileDescriptor socket);
  void receive(Identifier id, Connection& connection);
  bool passToReader(Identifier id, Connection& connection, std::string_view piece);
  void transmit(Identifier id, Connection& connection);
  void startDraining(Identifier id, Connection& connection);
  void watchSending(Identifier id, Connection& connection);
  void drain(Identifier id, Connection& connection);
  void waitFor(Identifier id, Connection& connection, Descriptor::wait_type what, Step step);
  void end(Identifier id, Connection& connection);

  const Options options_;
  const Handlers handlers_;

  std::mutex mutex_;  // guards reactor_ and closed_ during destruction
  std::unique_ptr<Reactor> reactor_;
  bool closed_ = false;

  // Used on the listener's thread only:
  FileDescriptor socket_;
  std::optional<Descriptor> acceptor_;
  std::optional<asio::steady_timer> acceptTimer_;
  bool acceptsNoMore_ = false;
  bool waitsForRoom_ = false;
  Identifier lastId_ = 0;
  std::map<Identifier, Connection> connections_;  // oldest first
  std::optional<Identifier> handled_;             // the connection whose reader is running
  std::vector<char> scratch_;
};

LoopbackServer::Peer::Ticket::~Ticket() {
  if (answered) return;
  if (const auto listener = server.lock()) listener->drop(id);
}

void LoopbackServer::Peer::send(std::string message) const {
  deliver(std::move(message), false);
}

void LoopbackServer::Peer::refuse(std::string message) const {
  deliver(std::move(message), true);
}

void LoopbackServer::Peer::deliver(std::string message, bool refused) const {
  if (ticket_->answered.exchange(true)) return;
  if (const auto server = ticket_->server.lock()) {
    server->deliver(ticket_->id, std::move(message), refused);
  }
}

LoopbackServer::Server::Server(Options options, Handlers handlers, FileDescriptor socket)
    : options_(std::move(options)),
      handlers_(std::move(handlers)),
      reactor_(std::make_unique<Reactor>(threadName(options_.label))),
      socket_(std::move(socket)),
      scratch_(options_.readSize) {}

void LoopbackServer::Server::start() {
  reactor_->run([this] {
    acceptor_.emplace(reactor_->context(), socket_.get());
    acceptTimer_.emplace(reactor_->context());
  });
  reactor_->post([this] { acceptPending(); });
}

void LoopbackServer::Server::cancel() {
  reactor_->post([this] {
    if (std::exchange(acceptsNoMore_, true)) return;
    acceptTimer_->cancel();
    acceptor_->release();
    socket_.reset();
  });
}

void LoopbackServer::Server::close() {
  {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
  }
  cancel();
  reactor_->run([this] {
    connections_.clear();
    acceptTimer_.reset();
    acceptor_.reset();
  });
  std::unique_lock lock(mutex_);
  const auto reactor = std::move(reactor_);
  lock.unlock();
}

std::uint16_t LoopbackServer::Server::port() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

void LoopbackServer::Server::deliver(Identifier id, std::string message, bool refused) {
  onThread([this, id, refused, message = std::move(message)]() mutable {
    const auto found = connections_.find(id);
    if (found == connections_.end()) return;
    found->second.unsent = std::move(message);
    found->second.state = Connection::State::sending;
    found->second.refused = refused;
    transmit(id, found->second);
  });
}

void LoopbackServer::Server::drop(Identifier id) {
  onThread([this, id] {
    const auto found = connections_.find(id);
    if (found != connections_.end()) end(id, found->second);
  });
}

/// Runs the task now if called on the listener's thread, otherwise later on that thread. Drops it
/// after `close`.
void LoopbackServer::Server::onThread(Task task) {
  std::unique_lock lock(mutex_);
  if (!reactor_) return;
  if (reactor_->isCurrent()) {
    lock.unlock();
    task();
  } else if (!closed_) {
    reactor_->post(std::move(task));
  }
}

/// Accepts a few connections per turn, so that existing connections are served in between. If
/// descriptors have run out and `mayEvict` is set, closes one connection to accept another.
void LoopbackServer::Server::acceptPending(bool mayEvict) {
  for (int turn = 0; !acceptsNoMore_; ++turn) {
    if (turn == acceptsPerTurn) return reactor_->post([this] { acceptPending(); });
    waitsForRoom_ = isFull() && evictable() == connections_.end();
    if (waitsForRoom_) return;
    const int socket = ::accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    const bool needsDescriptor = socket < 0 && (errno == EMFILE || errno == ENFILE);
    if (socket >= 0) {
      add(FileDescriptor(socket));
    } else if (needsDescriptor && mayEvict && evictable() != connections_.end()) {
      connections_.erase(evictable());
      mayEvict = false;
    } else if (errno == EAGAIN || isShortage(errno)) {
      return acceptLater(errno);
    } else if (isFatal(errno)) {
      return handlers_.onFailed(systemError("accept", errno));
    }
  }
}

void LoopbackServer::Server::acceptLater(int error) {
  if (error == EAGAIN) {
    return acceptor_->async_wait(Descriptor::wait_read,
                                 [this](const boost::system::error_code& aborted) {
                                   if (!aborted) acceptPending();
                                 });
  }
  // By then a connection that has not sent a message is stalled, not new.
  acceptTimer_->expires_after(acceptRetryDelay);
  acceptTimer_->async_wait([this](const boost::system::error_code& aborted) {
    if (!aborted) acceptPending(true);
  });
}

/// Returns the connection that a new one replaces when the limit is reached, or the end.
auto LoopbackServer::Server::evictable() -> std::map<Identifier, Connection>::iterator {
  const auto refused = std::ranges::find_if(
      connections_, [](const auto& each) { return each.second.isDrainingAfterRefusal(); });
  if (refused != connections_.end()) return refused;
  return std::ranges::find_if(connections_, [](const auto& each) {
    return each.second.state == Connection::State::reading;
  });
}

void LoopbackServer::Server::add(FileDescriptor socket) {
  if (isFull()) connections_.erase(evictable());
  const Identifier id = ++lastId_;
  Peer peer(std::make_shared<Peer::Ticket>(weak_from_this(), id));
  const auto added =
      connections_.try_emplace(id, std::move(socket), std::move(peer), handlers_.onAccepted())
          .first;
  receive(id, added->second);
}

void LoopbackServer::Server::receive(Identifier id, Connection& connection) {
  for (;;) {
    const auto count = ::recv(connection.socket.get(), scratch_.data(), scratch_.size(), 0);
    if (count > 0) {
      const std::string_view piece(scratch_.data(), static_cast<std::size_t>(count));
      if (!passToReader(id, connection, piece)) return;
    } else if (count < 0 && errno == EAGAIN) {
      return waitFor(id, connection, Descriptor::wait_read, &Server::receive);
    } else if (count == 0 || errno != EINTR) {
      return end(id, connection);
    }
  }
}

/// Appends a piece to the received bytes and passes them to the reader. Returns whether to read on.
bool LoopbackServer::Server::passToReader(Identifier id, Connection& connection,
                                          std::string_view piece) {
  connection.received.append(piece);
  ::explicit_bzero(scratch_.data(), piece.size());
  handled_ = id;
  const auto verdict = connection.reader(*connection.peer, connection.received);
  handled_.reset();
  if (connection.state == Connection::State::ended) {
    end(id, connection);
    return false;
  }
  if (verdict == Verdict::incomplete) return true;
  connection.received.clear();
  if (connection.state == Connection::State::reading) connection.state = Connection::State::waiting;
  connection.peer.reset();  // closes the connection unless the owner kept a copy
  return false;
}

void LoopbackServer::Server::transmit(Identifier id, Connection& connection) {
  while (!connection.unsent.empty()) {
    const auto count = ::send(connection.socket.get(), connection.unsent.data(),
                              connection.unsent.size(), MSG_NOSIGNAL);
    if (count >= 0) {
      connection.unsent.erase(0, static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      if (!connection.timer) watchSending(id, connection);
      return waitFor(id, connection, Descriptor::wait_write, &Server::transmit);
    } else if (errno != EINTR) {
      return end(id, connection);
    }
  }
  if (!connection.refused && !hasUnreadBytes(connection.socket.get())) return end(id, connection);
  startDraining(id, connection);
}

/// Reads what the peer is still sending, because closing now would reset the connection and destroy
/// the answer in transit.
void LoopbackServer::Server::startDraining(Identifier id, Connection& connection) {
  ::shutdown(connection.socket.get(), SHUT_WR);
  connection.state = Connection::State::draining;
  connection.timer.emplace(reactor_->context(), drainTime);
  connection.timer->async_wait([this, id](const boost::system::error_code& aborted) {
    if (!aborted) drop(id);
  });
  if (connection.refused) acceptIfWaitingForRoom();
  drain(id, connection);
}

/// Checks periodically whether the peer accepts bytes of its answer, and ends the connection if it
/// does not. Unacknowledged bytes are counted because a slow peer may accept some long before the
/// socket is writable again.
void LoopbackServer::Server::watchSending(Identifier id, Connection& connection) {
  connection.unacknowledged =
      connection.unsent.size() + unacknowledgedBytes(connection.socket.get());
  connection.timer.emplace(reactor_->context(), options_.sendTimeout / checksPerSendTimeout);
  connection.timer->async_wait([this, id](const boost::system::error_code& aborted) {
    const auto found = aborted ? connections_.end() : connections_.find(id);
    if (found == connections_.end()) return;
    Connection& slow = found->second;
    if (slow.state != Connection::State::sending) return;
    const auto unacknowledged = slow.unsent.size() + unacknowledgedBytes(slow.socket.get());
    slow.stalledChecks = unacknowledged == slow.unacknowledged ? slow.stalledChecks + 1 : 0;
    if (slow.stalledChecks == checksPerSendTimeout) return end(id, slow);
    watchSending(id, slow);
  });
}

void LoopbackServer::Server::drain(Identifier id, Connection& connection) {
  for (;;) {
    const auto count = ::recv(connection.socket.get(), scratch_.data(), scratch_.size(), 0);
    if (count > 0) {
      connection.drained += static_cast<std::size_t>(count);
      if (connection.drained > drainBytes) return end(id, connection);
    } else if (count < 0 && errno == EAGAIN) {
      return waitFor(id, connection, Descriptor::wait_read, &Server::drain);
    } else if (count == 0 || errno != EINTR) {
      return end(id, connection);
    }
  }
}

void LoopbackServer::Server::waitFor(Identifier id, Connection& connection,
                                     Descriptor::wait_type what, Step step) {
  if (!connection.waiter) {
    connection.waiter.emplace(reactor_->context(), connection.socket.get());
  }
  connection.waiter->async_wait(what, [this, id, step](const boost::system::error_code& aborted) {
    if (aborted) return;
    const auto found = connections_.find(id);
    if (found != connections_.end()) (this->*step)(id, found->second);
  });
}

void LoopbackServer::Server::end(Identifier id, Connection& connection) {
  connection.state = Connection::State::ended;
  if (handled_ == id) return;  // its reader still uses the received bytes
  connections_.erase(id);
  acceptIfWaitingForRoom();
}

void LoopbackServer::Server::acceptIfWaitingForRoom() {
  if (std::exchange(waitsForRoom_, false)) reactor_->post([this] { acceptPending(); });
}

Result<std::unique_ptr<LoopbackServer>> LoopbackServer::open(Options options, Handlers handlers) {
  auto socket = listenOnLoopback(options.port);
  if (!socket) return socket.error();
  const auto server =
      std::make_shared<Server>(std::move(options), std::move(handlers), std::move(*socket));
  server->start();
  return std::unique_ptr<LoopbackServer>(new LoopbackServer(server));
}

LoopbackServer::LoopbackServer(std::shared_ptr<Server> server) : server_(std::move(server)) {}

LoopbackServer::~LoopbackServer() {
  server_->close();
}

std::uint16_t LoopbackServer::port() const {
  return server_->port();
}

void LoopbackServer::cancel() {
  server_->cancel();
}

}  // namespace zephyl
