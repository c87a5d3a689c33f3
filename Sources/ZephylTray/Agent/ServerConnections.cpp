#include "ZephylTray/Agent/ServerConnections.hpp"

#include <algorithm>

namespace zephyl {

namespace {

bool reachesAll(const SharedRoot& root) {
  return !root.servers || root.servers->empty();
}

}  // namespace

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

bool reaches(const SharedRoot& root, std::string_view serverId) {
  return reachesAll(root) || std::ranges::find(*root.servers, serverId) != root.servers->end();
}

/// Iterates over the folders' lists once, so the cost does not depend on the number of servers.
std::vector<std::size_t> sharedFolderCounts(const std::vector<SharedRoot>& roots,
                                            const ServerList& servers) {
  struct Count {
    std::size_t folders = 0;
    const SharedRoot* last = nullptr;  // a list may name a server twice
  };
  std::unordered_map<std::string_view, Count> counts;
  counts.reserve(servers.size());
  for (const auto& server : servers) counts.try_emplace(server.id);
  std::size_t sharedWithAll = 0;
  for (const auto& root : roots) {
    if (reachesAll(root)) {
      ++sharedWithAll;
      continue;
    }
    for (const auto& id : *root.servers) {
      const auto count = counts.find(id);
      if (count == counts.end() || count->second.last == &root) continue;
      ++count->second.folders;
      count->second.last = &root;
    }
  }
  std::vector<std::size_t> result;
  result.reserve(servers.size());
  for (const auto& server : servers) result.push_back(sharedWithAll + counts[server.id].folders);
  return result;
}

}  // namespace zephyl
