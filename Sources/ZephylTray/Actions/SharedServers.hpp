#pragma once

#include <string>
#include <vector>

#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Returns the ids of the servers that `root` is shared with after sharing it with `serverId`
/// (`shared`) or after ending that. The folder's list may name a server by its id or its `agentId`.
/// Omits names of no server. A folder with no list or an empty list counts as shared with every
/// server. An empty result means that the folder must not be shared any more.
std::vector<std::string> serversSharing(const SharedRoot& root, const ServerList& servers,
                                        const std::string& serverId, bool shared);

}  // namespace zephyl
