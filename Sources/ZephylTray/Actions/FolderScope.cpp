#include "ZephylTray/Actions/FolderScope.hpp"

#include <algorithm>

namespace zephyl {

std::vector<std::string> scope(const SharedRoot& root, const ServerList& servers,
                               const std::string& setting, bool to) {
  std::vector<std::string> known;
  for (const auto& server : servers) known.push_back(server.id);
  const auto isIn = [](const std::vector<std::string>& ids, const std::string& id) {
    return std::ranges::find(ids, id) != ids.end();
  };

  const bool sharedWithAll = !root.servers || root.servers->empty();
  auto scope = sharedWithAll ? known : *root.servers;
  std::erase_if(scope, [&](const std::string& id) { return !isIn(known, id); });
  if (!to) {
    std::erase(scope, setting);
  } else if (!isIn(scope, setting)) {
    scope.push_back(setting);
  }
  return scope;
}

}  // namespace zephyl
