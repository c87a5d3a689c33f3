#pragma once

#include <memory>

#include "ZephylTray/Actions/FolderSharing.hpp"
#include "ZephylTray/Actions/LogWindows.hpp"
#include "ZephylTray/Actions/ServerActions.hpp"
#include "ZephylTray/Actions/WindowLauncher.hpp"
#include "ZephylTray/App/Components.hpp"
#include "ZephylTray/App/ReplacementNotice.hpp"
#include "ZephylTray/Approvals/ApprovalPrompts.hpp"
#include "ZephylTray/Control/ControlAPI.hpp"
#include "ZephylTray/Control/ControlServer.hpp"
#include "ZephylTray/Menu/StatusItemController.hpp"

/// The ports of the tray's parts as the running program fills them: from its components, the
/// registry and the settings. Each port refers to `components` and `control`, which outlive it, and
/// holds the other parts that it uses.
namespace zephyl::ports {

LogWindows::Port logWindows(const Components& components);
WindowLauncher::Port windowLauncher(const Components& components, ControlServer& control);
ApprovalPrompts::Port approvalPrompts(const Components& components,
                                      const std::shared_ptr<AgentMonitor>& monitor);
ServerActions::Port serverActions(const Components& components);
FolderSharing::Port folderSharing(const Components& components,
                                  const std::shared_ptr<AgentMonitor>& monitor);
ReplacementNotice::Port replacementNotice(const Components& components);
/// Without `perform`, which the caller sets.
StatusItemController::Port statusItem(const Components& components,
                                      const std::shared_ptr<AgentMonitor>& monitor);
/// Without `serverActions` and `folderSharing`, which the caller sets.
ControlAPI::Port controlAPI(const Components& components,
                            const std::shared_ptr<AgentMonitor>& monitor,
                            const std::shared_ptr<WindowLauncher>& windows);

}  // namespace zephyl::ports
