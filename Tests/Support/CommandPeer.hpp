#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <sys/socket.h>

#include "Support/Eventually.hpp"
#include "ZephylTray/Commands/Protocol/CommandSocket.hpp"

namespace zephyl::test {

/// A client of the socket for commands that sends and receives raw bytes.
class CommandPeer {
 public:
  explicit CommandPeer(const std::string& path) {
    if (auto socket = CommandSocket::connect(path)) socket_ = std::move(*socket);
    EXPECT_TRUE(socket_) << path;
  }

  void send(std::string_view bytes) const {
    EXPECT_EQ(::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  /// Returns the next line if it has arrived, without its end.
  std::optional<std::string> line() {
    read();
    const auto end = received_.find('\n');
    if (end == std::string::npos) return std::nullopt;
    auto line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return line;
  }
  /// Waits for a line. Blocks this thread.
  std::string awaitLine() {
    std::optional<std::string> found;
    EXPECT_TRUE(eventually([&] { return (found = line()).has_value(); }));
    return found.value_or("");
  }
  /// Returns whether the peer has closed the connection.
  bool isClosed() {
    read();
    return closed_;
  }

 private:
  void read() {
    std::array<char, 65536> piece{};
    for (;;) {
      const auto count = ::recv(socket_.get(), piece.data(), piece.size(), MSG_DONTWAIT);
      if (count == 0) closed_ = true;
      if (count < 0) closed_ = closed_ || errno != EAGAIN;
      if (count <= 0) return;
      received_.append(piece.data(), static_cast<std::size_t>(count));
    }
  }

  FileDescriptor socket_;
  std::string received_;
  bool closed_ = false;
};

}  // namespace zephyl::test
