#include "ZephylTray/Actions/SharedServers.hpp"

#include <algorithm>

#include "ZephylTray/Agent/ServerConnections.hpp"
#include "ZephylTray/Agent/ServerNames.hpp"

namespace zephyl {

std::vector<std::string> serversSharing(const SharedRoot& root, const ServerList& servers,
                                        const std::string& serverId, bool shared) {
  std::vector<std::string> sharing;
  const auto add = [&sharing](const std::string& id) {
    if (std::ranges::find(sharing, id) == sharing.end()) sharing.push_back(id);
  };
  if (isSharedWithAll(root)) {
    for (const auto& server : servers) add(server.id);
  } else {
    const ServerNames names(servers);
    for (const auto& name : *root.servers) {
      if (const auto index = names.find(name)) add(servers[*index].id);
    }
  }
  if (shared) {
    add(serverId);
  } else {
    std::erase(sharing, serverId);
  }
  return sharing;
}

}  // namespace zephyl
