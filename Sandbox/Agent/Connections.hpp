#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/any_io_executor.hpp>

#include "Agent/Outcome.hpp"
#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// One server that the agent is told to connect to.
struct ServerAddress {
  std::string url;
  std::string label;
  /// "address:port" of the SOCKS proxy through which the server is reached.
  std::optional<std::string> socks5;
  std::optional<std::string> agentId;
};

/// Reads the JSON list of servers in the agent's environment; an empty text is an empty list.
Outcome<std::vector<ServerAddress>> parseServers(std::string_view text);

/// The agent's connections, one per server. There is no server here: what is looked at is whether
/// anything listens on the server's SOCKS address. If so, the connection is "connected", and
/// "enrolled" if that still holds at the next look; if not, it is "connecting" with the reason. A
/// server without SOCKS address has no way to be reached and stays "disconnected".
///
/// Lives on the thread of its executor, which must not run on after it; looks are `interval` apart.
class Connections {
 public:
  using OnChange = std::function<void(const AgentConnection&)>;

  Connections(const boost::asio::any_io_executor& executor, std::vector<ServerAddress> servers,
              std::string machineId, std::chrono::milliseconds interval, OnChange onChange);
  ~Connections();
  Connections(const Connections&) = delete;
  Connections& operator=(const Connections&) = delete;

  const std::vector<AgentConnection>& list() const { return connections_; }

  /// The best of all: enrolled, connected, connecting; disconnected without any server.
  AgentState overall() const;

 private:
  class Lookout;

  void settle(AgentConnection& connection, const std::optional<std::string>& error);

  std::string machineId_;
  OnChange onChange_;
  std::vector<AgentConnection> connections_;
  std::vector<std::unique_ptr<Lookout>> lookouts_;
};

}  // namespace zephyl::sandbox
