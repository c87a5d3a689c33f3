#pragma once

#include <string>
#include <vector>

#include "Desktop/Client/Records.hpp"

namespace zephyl::sandbox::desktop {

/// Returns the id of a server that the user names by its id, its name in any case, or an
/// unambiguous prefix of its id. The error lists all servers.
Result<std::string> chooseServer(const std::vector<ServerEntry>& servers, const std::string& meant);

/// Returns the path of a folder that the user names by the path or the name of a shared folder. Any
/// other text is a path relative to the working directory.
std::string chooseFolder(const std::vector<FolderEntry>& folders, const std::string& meant);

}  // namespace zephyl::sandbox::desktop
