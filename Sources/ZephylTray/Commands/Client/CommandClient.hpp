#pragma once

#include <functional>
#include <string>

#include "ZephylTray/Commands/Protocol/CommandArguments.hpp"

namespace zephyl {

/// The exit statuses of `zephyl-tray VERB`.
namespace commandStatus {
inline constexpr int success = 0;
inline constexpr int failure = 1;  ///< refused, or something needs attention
inline constexpr int wrongUse = 2;
inline constexpr int notRunning = 3;
inline constexpr int notAnswering = 4;
}  // namespace commandStatus

/// Runs a verb, except `doctor`, and returns the exit status. Reads standard input and prints. Must
/// be called once per process. Starts no thread.
int runCommand(const CommandArguments& arguments);

}  // namespace zephyl
