#include "ZephylTray/Actions/SharedServers.hpp"

#include <algorithm>

namespace zephyl {

std::vector<std::string> serversSharing(const SharedRoot& root, const ServerList& servers,
                                        const std::string& serverId, bool shared) {
  std::vector<std::string> known;
  for (const auto& server : servers) known.push_back(server.id);
  const auto isIn = [](const std::vector<std::string>& ids, const std::string& id) {
    return std::ranges::find(ids, id) != ids.end();
  };

  const bool sharedWithAll = !root.servers || root.servers->empty();
  auto sharing = sharedWithAll ? known : *root.servers;
  std::erase_if(sharing, [&](const std::string& id) { return !isIn(known, id); });
  if (!shared) {
    std::erase(sharing, serverId);
  } else if (!isIn(sharing, serverId)) {
    sharing.push_back(serverId);
  }
  return sharing;
}

}  // namespace zephyl
