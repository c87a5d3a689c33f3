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

  /// The next request, head and body; what there was of it when the client went away.
  [[nodiscard]] std::string receiveRequest() const;
  /// False when the client is gone.
  bool send(std::string_view bytes) const;
  /// Sends byte by byte, each when the client has taken the one before.
  void sendInSingleBytes(std::string_view bytes) const;
  /// Whether the client goes away within `limit`.
  [[nodiscard]] bool isLeftWithin(std::chrono::milliseconds limit) const;
  void waitUntilLeft() const;
  /// Makes closing the connection a reset.
  void resetOnClose() const;

 private:
  int descriptor_;
};

/// A server on a free loopback port that does to each connection what its script says, on
/// threads of its own. One thread serves one connection at a time.
class ScriptedServer {
 public:
  using Script = std::function<void(const ScriptedPeer&)>;

  explicit ScriptedServer(Script script, int threads = 1, int family = 2 /* AF_INET */);
  /// Breaks off what is going on.
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  /// Host and port.
  [[nodiscard]] const std::string& authority() const { return authority_; }
  [[nodiscard]] std::string url(std::string_view target = "/") const;
  /// The client's ends of the open connections, found among the descriptors of this process.
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

/// A loopback port on which connecting is refused, as long as it lives.
class RefusingPort {
 public:
  RefusingPort();
  [[nodiscard]] const std::string& authority() const { return authority_; }

 private:
  FileDescriptor socket_;
  std::string authority_;
};

/// A loopback port on which connecting takes for ever, as long as it lives.
class StallingPort {
 public:
  StallingPort();
  [[nodiscard]] const std::string& authority() const { return authority_; }

 private:
  FileDescriptor listener_;
  std::vector<FileDescriptor> waiting_;
  std::string authority_;
};

/// What has arrived on a socket and was not read.
std::size_t unreadBytes(int descriptor);

}  // namespace zephyl::test
