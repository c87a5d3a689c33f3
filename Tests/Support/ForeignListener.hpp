#pragma once

#include <csignal>
#include <cstdint>
#include <optional>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// Returns a socket that listens at a numeric address and port; empty if the address cannot be
/// bound.
inline FileDescriptor listenOn(const std::string& address, int port) {
  sockaddr_storage storage{};
  socklen_t size = 0;
  auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
  if (::inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    v4->sin_port = htons(static_cast<std::uint16_t>(port));
    size = sizeof *v4;
  } else if (::inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(static_cast<std::uint16_t>(port));
    size = sizeof *v6;
  }
  FileDescriptor socket(::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int off = 0;
  const int on = 1;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (storage.ss_family == AF_INET6) {
    ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  }
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&storage), size) != 0 ||
      ::listen(socket.get(), 8) != 0) {
    return {};
  }
  return socket;
}

/// A program of another user that listens on a port of 127.0.0.1 and accepts nothing. Requires
/// root.
class ForeignListener {
 public:
  static constexpr uid_t user = 54321;

  /// `port` 0 means any free port.
  explicit ForeignListener(int port = 0) {
    int told[2];
    if (::geteuid() != 0 || ::pipe(told) != 0) return;
    const FileDescriptor reading(told[0]);
    FileDescriptor writing(told[1]);
    child_ = ::fork();
    if (child_ == 0) listenForEver(port, writing.get());
    writing.reset();
    in_port_t number = 0;
    if (::read(reading.get(), &number, sizeof number) == sizeof number) port_ = ntohs(number);
  }
  ~ForeignListener() {
    if (child_ <= 0) return;
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  ForeignListener(const ForeignListener&) = delete;
  ForeignListener& operator=(const ForeignListener&) = delete;

  /// Returns nullopt if this user is not root.
  [[nodiscard]] std::optional<int> port() const { return port_; }

 private:
  [[noreturn]] static void listenForEver(int port, int tell) {
    if (::setuid(user) != 0) ::_exit(1);
    const auto socket = listenOn("127.0.0.1", port);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    static_cast<void>(::write(tell, &address.sin_port, sizeof address.sin_port) < 0);
    for (;;) ::pause();
  }

  pid_t child_ = -1;
  std::optional<int> port_;
};

}  // namespace zephyl::test
