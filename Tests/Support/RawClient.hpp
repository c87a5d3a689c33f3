#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// Returns a free loopback port. Another program may take it later.
inline int freePort() {
  const FileDescriptor probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  static_cast<void>(::bind(probe.get(), reinterpret_cast<const sockaddr*>(&address), size));
  ::getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

/// A TCP client on loopback that sends and receives raw bytes.
class RawClient {
 public:
  explicit RawClient(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ =
        ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }

  [[nodiscard]] bool connected() const { return connected_; }

  /// Returns false if the server has closed the connection.
  bool send(std::string_view bytes) const {
    while (!bytes.empty()) {
      const auto count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }
  void finishSending() const { ::shutdown(socket_.get(), SHUT_WR); }

  /// Returns all bytes until the server closes. Appends "(reset)" if it reset the connection, and
  /// "(silence)" if it did not close within ten seconds.
  [[nodiscard]] std::string receiveAll() const {
    std::string all;
    char piece[4096];
    while (isReadable(std::chrono::seconds(10))) {
      const auto count = ::recv(socket_.get(), piece, sizeof piece, 0);
      if (count == 0) return all;
      if (count < 0) return all + "(reset)";
      all.append(piece, static_cast<std::size_t>(count));
    }
    return all + "(silence)";
  }
  [[nodiscard]] bool isReadable(std::chrono::milliseconds limit) const {
    pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
    return ::poll(&waiting, 1, static_cast<int>(limit.count())) == 1;
  }

 private:
  FileDescriptor socket_;
  bool connected_ = false;
};

}  // namespace zephyl::test
