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

/// The agent's simulated connections, one per server. They only check whether a program accepts
/// connections on the server's SOCKS address. If so, the connection is "connected", and "enrolled"
/// after the next successful check. If not, it is "connecting" with the reason. A server without
/// SOCKS address stays "disconnected".
///
/// Must be used on the thread of its executor, which must not run after its destruction.
class Connections {
 public:
  using OnChange = std::function<void(const AgentConnection&)>;

  Connections(const boost::asio::any_io_executor& executor,
              const std::vector<ServerAddress>& servers, std::string machineId,
              std::chrono::milliseconds interval, OnChange onChange);
  Connections(const Connections&) = delete;
  Connections& operator=(const Connections&) = delete;

  [[nodiscard]] const std::vector<AgentConnection>& list() const { return connections_; }

  /// Returns the best state of all servers: enrolled, connected, connecting; disconnected if there
  /// is no server.
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
