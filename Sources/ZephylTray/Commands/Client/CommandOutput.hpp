#pragma once

#include <string>
#include <vector>

#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"

/// What the commands print for people. What comes from outside stays on its line, with characters
/// that cannot be seen made visible. Every text ends with a newline, unless it is empty. Pure.
namespace zephyl::commandOutput {

std::string status(const CommandStatus& status);
/// The state as one line of `watch`, without a time.
std::string change(const CommandStatus& status);
std::string servers(const std::vector<CommandServerRecord>& servers);
std::string folders(const std::vector<CommandFolder>& folders,
                    const std::vector<CommandServerRecord>& servers);
/// A line for each request, with all that it asks for. Every field is quoted, so that none can
/// pass for another.
std::string requests(const CommandPending& pending);
/// Lines of a log.
std::string log(const std::vector<std::string>& lines);

}  // namespace zephyl::commandOutput
