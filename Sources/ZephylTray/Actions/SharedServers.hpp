#pragma once

#include <string>
#include <vector>

#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Returns the ids of the servers that `root` is shared with after sharing it with `serverId`
/// (`shared`) or after ending that. Omits ids that are not in `servers`. A folder with no list or
/// an empty list counts as shared with every server. An empty result means that the folder must not
/// be shared any more.
std::vector<std::string> serversSharing(const SharedRoot& root, const ServerList& servers,
                                        const std::string& serverId, bool shared);

}  // namespace zephyl
