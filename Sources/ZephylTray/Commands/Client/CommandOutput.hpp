#pragma once

#include <string>
#include <vector>

#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"

/// The output of the commands for people. External text stays on its line, with invisible
/// characters made visible. Every text ends with a newline unless it is empty. Pure.
namespace zephyl::commandOutput {

std::string status(const CommandStatus& status);
/// Returns the state as one line of `watch`, without a time.
std::string change(const CommandStatus& status);
std::string servers(const std::vector<CommandServerRecord>& servers);
std::string folders(const std::vector<CommandFolder>& folders,
                    const std::vector<CommandServerRecord>& servers);
/// Returns one line for each request with all its fields. Every field is quoted, so that none can
/// imitate another.
std::string requests(const CommandPending& pending);
/// Returns lines of a log.
std::string log(const std::vector<std::string>& lines);

}  // namespace zephyl::commandOutput
