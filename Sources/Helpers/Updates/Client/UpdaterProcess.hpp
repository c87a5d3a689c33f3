#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Processes/HelperProcess.hpp"

namespace zephyl {

/// One run of zephyl-tray-updater. Destroying it closes the program's input, which cancels a check
/// or a download. Main thread only.
using UpdaterProcess = HelperProcess<UpdatesProtocol>;

/// Runs zephyl-tray-updater. Calls `report` later, on the main thread, with each report. Also calls
/// it with `UpdateFailed` if the program cannot be run or sends an invalid report, and when it
/// ends. The caller must destroy the process after a report other than `UpdateProgress`. `mainLoop`
/// must outlive it.
std::unique_ptr<UpdaterProcess> startUpdater(
    MainLoop& mainLoop, ProcessLauncher& launcher, const std::string& program,
    const UpdateCommand& command, const std::function<void(const UpdateReport&)>& report);

/// Returns the options of all runs of the program: it outlives the tray and has input. By default
/// it inherits the tray's output.
ProcessOptions updaterOptions(const std::string& program);

}  // namespace zephyl
