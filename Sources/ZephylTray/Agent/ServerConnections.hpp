#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Registry/Servers.hpp"

/// Pure queries of the agent's records about registered servers.
namespace zephyl {

/// Finds the agent's connection to a server: the first one with the server's id, else the first one
/// with its `agentId`, which is the id that the agent received.
///
/// Refers to the status from which it was constructed, which must outlive it.
class ServerConnections {
 public:
  ServerConnections() = default;  ///< no connections
  explicit ServerConnections(const AgentStatus& status);
  explicit ServerConnections(AgentStatus&& status) = delete;

  /// Returns null if the agent has no connection to the server.
  [[nodiscard]] const AgentConnection* of(const ServerEntry& server) const;

 private:
  std::unordered_map<std::string_view, const AgentConnection*> firstByServerId_;
};

/// Does the same for one server.
std::optional<AgentConnection> connectionOf(const AgentStatus& status, const ServerEntry& server);

/// Returns whether the folder is shared with every server, because it names none.
bool isSharedWithAll(const SharedRoot& root);

/// Returns how many of `roots` are shared with each server, in the order of `servers`.
std::vector<std::size_t> sharedFolderCounts(const std::vector<SharedRoot>& roots,
                                            const ServerList& servers);

}  // namespace zephyl
