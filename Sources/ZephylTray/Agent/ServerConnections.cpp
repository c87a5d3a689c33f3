#include "ZephylTray/Agent/ServerConnections.hpp"

#include "ZephylTray/Agent/ServerNames.hpp"

namespace zephyl {

ServerConnections::ServerConnections(const AgentStatus& status) {
  if (!status.connections) return;
  firstByServerId_.reserve(status.connections->size());
  for (const auto& connection : *status.connections) {
    firstByServerId_.try_emplace(connection.serverId, &connection);
  }
}

const AgentConnection* ServerConnections::of(const ServerEntry& server) const {
  auto found = firstByServerId_.find(server.id);
  if (found == firstByServerId_.end() && !server.agentId.empty()) {
    found = firstByServerId_.find(server.agentId);
  }
  return found == firstByServerId_.end() ? nullptr : found->second;
}

std::optional<AgentConnection> connectionOf(const AgentStatus& status, const ServerEntry& server) {
  const auto* const connection = ServerConnections(status).of(server);
  return connection != nullptr ? std::optional(*connection) : std::nullopt;
}

bool isSharedWithAll(const SharedRoot& root) {
  return !root.servers || root.servers->empty();
}

/// Iterates over the folders' lists once, so the cost does not depend on the number of servers.
std::vector<std::size_t> sharedFolderCounts(const std::vector<SharedRoot>& roots,
                                            const ServerList& servers) {
  struct Count {
    std::size_t folders = 0;
    const SharedRoot* last = nullptr;  // a list may name a server twice
  };
  const ServerNames names(servers);
  std::vector<Count> counts(servers.size());
  std::size_t sharedWithAll = 0;
  for (const auto& root : roots) {
    if (isSharedWithAll(root)) {
      ++sharedWithAll;
      continue;
    }
    for (const auto& name : *root.servers) {
      const auto index = names.find(name);
      if (!index || counts[*index].last == &root) continue;
      ++counts[*index].folders;
      counts[*index].last = &root;
    }
  }
  std::vector<std::size_t> result;
  result.reserve(servers.size());
  for (const auto& server : servers) {
    result.push_back(sharedWithAll + counts[names.find(server.id).value()].folders);
  }
  return result;
}

}  // namespace zephyl
