#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// The server's end of one connection.
class ScriptedPeer {
 public:
  explicit ScriptedPeer(int descriptor) : descriptor_(descriptor) {}

  /// Returns the next request with head and body. Returns a part of it if the client disconnects.
  [[nodiscard]] std::string receiveRequest() const;
  /// Returns false if the client has disconnected.
  bool send(std::string_view bytes) const;
  /// Sends byte by byte. Waits until the client has read each one.
  void sendInSingleBytes(std::string_view bytes) const;
  /// Returns whether the client disconnects within `limit`.
  [[nodiscard]] bool isLeftWithin(std::chrono::milliseconds limit) const;
  void waitUntilLeft() const;
  /// Makes closing the connection a reset.
  void resetOnClose() const;

 private:
  int descriptor_;
};

/// A server on a free loopback port that runs its script for each connection, on its own threads.
/// One thread serves one connection at a time.
class ScriptedServer {
 public:
  using Script = std::function<void(const ScriptedPeer&)>;

  explicit ScriptedServer(Script script, int threads = 1, int family = 2 /* AF_INET */);
  /// Interrupts running scripts.
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  /// Host and port.
  [[nodiscard]] const std::string& authority() const { return authority_; }
  [[nodiscard]] std::string url(std::string_view target = "/") const;
  /// Returns the client's ends of the open connections, found among this process's descriptors.
  [[nodiscard]] std::vector<int> clientDescriptors() const;

 private:
  void serve();

  Script script_;
  FileDescriptor listener_;
  std::uint16_t port_ = 0;
  std::string authority_;
  std::mutex mutex_;
  bool closing_ = false;
  std::set<int> open_;
  std::vector<std::thread> threads_;
};

/// A loopback port that refuses connections while the object lives.
class RefusingPort {
 public:
  RefusingPort();
  [[nodiscard]] const std::string& authority() const { return authority_; }

 private:
  FileDescriptor socket_;
  std::string authority_;
};

/// A loopback port on which connecting never completes while the object lives.
class StallingPort {
 public:
  StallingPort();
  [[nodiscard]] const std::string& authority() const { return authority_; }

 private:
  FileDescriptor listener_;
  std::vector<FileDescriptor> waiting_;
  std::string authority_;
};

/// Returns the number of unread bytes of a socket.
std::size_t unreadBytes(int descriptor);

}  // namespace zephyl::test
