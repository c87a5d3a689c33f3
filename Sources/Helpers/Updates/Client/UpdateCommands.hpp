#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "Helpers/Updates/Client/UpdateSetup.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Processes/ChildProcess.hpp"

/// The commands of an update session to zephyl-tray-updater, and the meaning of its reports. Main
/// thread only.
namespace zephyl {

/// Returns the command for a check. A check on request of the user also offers versions that were
/// skipped or have failed. Reads the settings and the state directory of the installation.
CheckCommand checkCommand(const UpdateSetup& setup, bool isUserInitiated);

/// Returns the date of the feed that a check has read, or nullopt if the check failed.
std::optional<std::chrono::sys_seconds> feedDateOf(const UpdateReport& check);

/// Returns the reason why a step failed. `report` must be its last report.
std::string failureOf(const UpdateReport& report);

/// Starts an updater that watches the next version, which this process is about to execute, and
/// rolls it back if it does not confirm itself. Logs a failure.
void watchRelaunch(ProcessLauncher& launcher, const UpdateSetup& setup);

}  // namespace zephyl
