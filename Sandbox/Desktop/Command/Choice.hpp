#pragma once

#include <string>
#include <vector>

#include "Desktop/Client/Records.hpp"

namespace zephyl::sandbox::desktop {

/// Returns the id of the server that the user means: by its id, its name in any case, or a
/// beginning of an id that no other server has. An error lists the servers to choose from.
Result<std::string> chooseServer(const std::vector<ServerEntry>& servers, const std::string& meant);

/// Returns the path of the folder that the user means: the path or the name of a shared folder,
/// else the path itself, relative to the working directory.
std::string chooseFolder(const std::vector<FolderEntry>& folders, const std::string& meant);

}  // namespace zephyl::sandbox::desktop
