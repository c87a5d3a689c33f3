#include "ZephylTray/Agent/ServerNames.hpp"

namespace zephyl {

ServerNames::ServerNames(const ServerList& servers) {
  indices_.reserve(2 * servers.size());
  for (std::size_t index = 0; index < servers.size(); ++index) {
    indices_.try_emplace(servers[index].id, index);
  }
  for (std::size_t index = 0; index < servers.size(); ++index) {
    if (!servers[index].agentId.empty()) indices_.try_emplace(servers[index].agentId, index);
  }
}

std::optional<std::size_t> ServerNames::find(std::string_view name) const {
  const auto found = indices_.find(name);
  return found == indices_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace zephyl
