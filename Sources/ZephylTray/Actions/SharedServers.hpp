#pragma once

#include <string>
#include <vector>

#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Returns the ids of the servers that `root` is shared with, once it is shared with `serverId`
/// (`shared`), or no longer. Drops ids that are not in `servers`. A folder without a list, or with
/// an empty one, counts as shared with every server. An empty result means that the folder is not
/// to be shared at all.
std::vector<std::string> serversSharing(const SharedRoot& root, const ServerList& servers,
                                        const std::string& serverId, bool shared);

}  // namespace zephyl
