#pragma once

#include <string>
#include <vector>

#include "Desktop/Client/Records.hpp"

/// Format the answers of the control API for a terminal.
namespace zephyl::sandbox::desktop {

std::string statusReport(const TrayStatus& status);
std::string serversReport(const std::vector<ServerEntry>& servers);
/// `servers` provides the names of servers.
std::string foldersReport(const std::vector<FolderEntry>& folders,
                          const std::vector<ServerEntry>& servers);
/// Any JSON, indented.
std::string outline(const json::Value& value);

}  // namespace zephyl::sandbox::desktop
