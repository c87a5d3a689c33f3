#pragma once

#include <functional>
#include <string>

#include "ZephylTray/Commands/Client/CommandArguments.hpp"

namespace zephyl {

/// The statuses that `zephyl-tray VERB` ends with.
namespace commandStatus {
inline constexpr int success = 0;
inline constexpr int failure = 1;  ///< refused, or something needs attention
inline constexpr int wrongUse = 2;
inline constexpr int notRunning = 3;
inline constexpr int notAnswering = 4;
}  // namespace commandStatus

/// Runs a verb that the running tray carries out, or one about files of the user, and returns the
/// exit status. `doctor` is not among them. Reads standard input, and prints; a process does this
/// once. Starts no thread.
int runCommand(const CommandArguments& arguments);

}  // namespace zephyl
