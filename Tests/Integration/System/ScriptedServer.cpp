#include "ScriptedServer.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "Support/Eventually.hpp"
#include "System/Data/Format.hpp"

namespace zephyl::test {

namespace {

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

/// An address of either family. The port has the same offset in both.
struct Address {
  sockaddr_in6 storage{};
  socklen_t size = sizeof storage;

  sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
  [[nodiscard]] std::uint16_t port() const { return ntohs(storage.sin6_port); }

  static Address loopback(int family) {
    Address address;
    address.storage.sin6_family = static_cast<sa_family_t>(family);
    if (family == AF_INET6) {
      address.storage.sin6_addr = in6addr_loopback;
    } else {
      reinterpret_cast<sockaddr_in*>(&address.storage)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      address.size = sizeof(sockaddr_in);
    }
    return address;
  }
};

/// Returns a socket bound to a free loopback port, and that port.
std::pair<FileDescriptor, Address> bindLoopback(int family) {
  FileDescriptor socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  auto address = Address::loopback(family);
  require(::bind(socket.get(), address.get(), address.size) == 0, "bind");
  require(::getsockname(socket.get(), address.get(), &address.size) == 0, "getsockname");
  return {std::move(socket), address};
}

Address localAddress(int descriptor) {
  Address address;
  ::getsockname(descriptor, address.get(), &address.size);
  return address;
}

/// Returns the peer's port of a connection; 0 if `descriptor` is not a connection.
std::uint16_t remotePort(int descriptor) {
  Address address;
  return ::getpeername(descriptor, address.get(), &address.size) == 0 ? address.port() : 0;
}

/// Returns the descriptors of this process that are connected to `port`.
std::vector<int> connectedTo(std::uint16_t port) {
  std::vector<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename());
    if (remotePort(descriptor) == port) found.push_back(descriptor);
  }
  return found;
}

/// Returns whether the client, in this process, has read everything that was sent to it.
bool isAllRead(int server) {
  const auto clientPort = remotePort(server);
  return std::ranges::none_of(connectedTo(localAddress(server).port()), [&](int client) {
    return localAddress(client).port() == clientPort && unreadBytes(client) > 0;
  });
}

std::size_t announcedLength(std::string_view head) {
  const std::string_view name = "Content-Length: ";
  const auto found = head.find(name);
  if (found == std::string_view::npos) return 0;
  return std::stoul(std::string(head.substr(found + name.size(), 20)));
}

}  // namespace

std::string ScriptedPeer::receiveRequest() const {
  std::string text;
  std::array<char, 16384> piece{};
  while (true) {
    const auto end = text.find("\r\n\r\n");
    if (end != std::string::npos && text.size() >= end + 4 + announcedLength(text)) return text;
    const auto size = ::recv(descriptor_, piece.data(), piece.size(), 0);
    if (size <= 0) return text;
    text.append(piece.data(), static_cast<std::size_t>(size));
  }
}

bool ScriptedPeer::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const auto size = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (size <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

void ScriptedPeer::sendInSingleBytes(std::string_view bytes) const {
  const int on = 1;
  ::setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  for (const char byte : bytes) {
    if (!send({&byte, 1})) return;
    require(eventually([this] { return isAllRead(descriptor_); }), "byte not taken");
  }
}

bool ScriptedPeer::isLeftWithin(std::chrono::milliseconds limit) const {
  pollfd waited{.fd = descriptor_, .events = POLLRDHUP, .revents = 0};
  return ::poll(&waited, 1, static_cast<int>(limit.count())) > 0;
}

void ScriptedPeer::waitUntilLeft() const {
  require(isLeftWithin(std::chrono::seconds(30)), "the client stays");
}

void ScriptedPeer::resetOnClose() const {
  const linger abort{.l_onoff = 1, .l_linger = 0};
  ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
}

ScriptedServer::ScriptedServer(Script script, int threads, int family)
    : script_(std::move(script)) {
  auto [listener, address] = bindLoopback(family);
  listener_ = std::move(listener);
  require(::listen(listener_.get(), 128) == 0, "listen");
  port_ = address.port();
  authority_ = formatText("{}:{}", family == AF_INET6 ? "[::1]" : "127.0.0.1", port_);
  for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    for (const int descriptor : open_) ::shutdown(descriptor, SHUT_RDWR);
  }
  ::shutdown(listener_.get(), SHUT_RDWR);
  for (auto& thread : threads_) thread.join();
}

void ScriptedServer::serve() {
  while (true) {
    const FileDescriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    {
      const std::lock_guard lock(mutex_);
      if (closing_ || !connection) return;
      open_.insert(connection.get());
    }
    script_(ScriptedPeer(connection.get()));
    const std::lock_guard lock(mutex_);
    open_.erase(connection.get());
  }
}

std::string ScriptedServer::url(std::string_view target) const {
  return formatText("http://{}{}", authority_, target);
}

std::vector<int> ScriptedServer::clientDescriptors() const {
  return connectedTo(port_);
}

RefusingPort::RefusingPort() {
  auto [socket, address] = bindLoopback(AF_INET);
  socket_ = std::move(socket);
  authority_ = formatText("127.0.0.1:{}", address.port());
}

StallingPort::StallingPort() {
  auto [listener, address] = bindLoopback(AF_INET);
  listener_ = std::move(listener);
  require(::listen(listener_.get(), 0) == 0, "listen");
  authority_ = formatText("127.0.0.1:{}", address.port());
  // When the queue of unaccepted connections is full, further ones get no answer.
  for (int i = 0; i < 4; ++i) {
    auto& client =
        waiting_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    (void)::connect(client.get(), address.get(), address.size);
  }
}

std::size_t unreadBytes(int descriptor) {
  int size = 0;
  ::ioctl(descriptor, FIONREAD, &size);
  return static_cast<std::size_t>(size);
}

}  // namespace zephyl::test
