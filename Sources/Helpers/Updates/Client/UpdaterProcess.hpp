#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Processes/HelperProcess.hpp"

namespace zephyl {

/// One run of zephyl-tray-updater. Destroying it ends the program's input, which cancels a check or
/// a download. Main thread.
using UpdaterProcess = HelperProcess<UpdatesProtocol>;

/// Runs zephyl-tray-updater. `report` is called later, on the main thread, with each report, and
/// with `UpdateFailed` if the program cannot be run or sends an invalid report, and when it ends.
/// The caller destroys the process after a report that is not `UpdateProgress`. `mainLoop` outlives
/// it.
std::unique_ptr<UpdaterProcess> startUpdater(
    MainLoop& mainLoop, ProcessLauncher& launcher, const std::string& program,
    const UpdateCommand& command, const std::function<void(const UpdateReport&)>& report);

/// What all runs of the program have in common: it outlives the tray and has input. Its output goes
/// where the tray's goes unless that is changed.
ProcessOptions updaterOptions(const std::string& program);

}  // namespace zephyl
