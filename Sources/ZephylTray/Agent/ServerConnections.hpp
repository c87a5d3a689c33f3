#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Registry/Servers.hpp"

/// What the agent's records say about a registered server. Pure.
namespace zephyl {

/// Finds the agent's connection to a server: the first one under the server's id, else the first
/// one under the `agentId`, which is the name that the agent is given.
///
/// Refers to the status that it was made from.
class ServerConnections {
 public:
  ServerConnections() = default;  ///< there are none
  explicit ServerConnections(const AgentStatus& status);
  explicit ServerConnections(AgentStatus&& status) = delete;

  /// Null when the agent has none.
  [[nodiscard]] const AgentConnection* of(const ServerEntry& server) const;

 private:
  std::unordered_map<std::string_view, const AgentConnection*> firstByServerId_;
};

/// The same for one server.
std::optional<AgentConnection> connectionOf(const AgentStatus& status, const ServerEntry& server);

/// Whether the folder is shared with the server: with every one when it names none.
bool reaches(const SharedRoot& root, std::string_view serverId);

/// How many of `roots` reach each server, in the order of `servers`.
std::vector<std::size_t> sharedFolderCounts(const std::vector<SharedRoot>& roots,
                                            const ServerList& servers);

}  // namespace zephyl
