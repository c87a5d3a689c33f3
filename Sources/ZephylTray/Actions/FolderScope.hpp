#pragma once

#include <string>
#include <vector>

#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// The servers that a folder is shared with once it is shared with server `setting`, or no longer
/// (`to`). Ids that name no registered server any more are dropped. A folder without a list, or
/// with an empty one, is shared with every server, so it counts as listing all of them. An empty
/// result means that the folder is not to be shared at all. Pure.
std::vector<std::string> scope(const SharedRoot& root, const ServerList& servers,
                               const std::string& setting, bool to);

}  // namespace zephyl
