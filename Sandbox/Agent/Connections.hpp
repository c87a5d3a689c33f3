#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// The agent's connections, one per server. There is no server here; only whether something accepts
/// connections on the server's SOCKS address is examined. If so, the connection is "connected", and
/// "enrolled" if that still holds the next time; if not, it is "connecting" with the reason. A
/// server without SOCKS address cannot be reached and stays "disconnected".
///
/// Lives on the thread of its executor, which must not run on after it.
class Connections {
 public:
  using OnChange = std::function<void(const AgentConnection&)>;

  Connections(const boost::asio::any_io_executor& executor,
              const std::vector<ServerAddress>& servers, std::string machineId,
              std::chrono::milliseconds interval, OnChange onChange);
  Connections(const Connections&) = delete;
  Connections& operator=(const Connections&) = delete;

  [[nodiscard]] const std::vector<AgentConnection>& list() const { return connections_; }

  /// The best of all: enrolled, connected, connecting; disconnected without any server.
  [[nodiscard]] AgentState overall() const;

 private:
  boost::asio::awaitable<void> watch(std::size_t index, std::string socks5,
                                     std::chrono::milliseconds interval);
  void settle(AgentConnection& connection, const std::optional<std::string>& error);

  std::string machineId_;
  OnChange onChange_;
  std::vector<AgentConnection> connections_;
};

}  // namespace zephyl::sandbox
