#pragma once

#include <memory>

#include "ZephylTray/Actions/FolderSharing.hpp"
#include "ZephylTray/Actions/LogWindows.hpp"
#include "ZephylTray/Actions/ServerActions.hpp"
#include "ZephylTray/Actions/WindowLauncher.hpp"
#include "ZephylTray/App/CommandSetup.hpp"
#include "ZephylTray/App/Components.hpp"
#include "ZephylTray/App/ReplacementNotice.hpp"
#include "ZephylTray/Approvals/ApprovalPrompts.hpp"
#include "ZephylTray/Commands/Server/CommandServer.hpp"
#include "ZephylTray/Control/ControlAPI.hpp"
#include "ZephylTray/Control/ControlServer.hpp"
#include "ZephylTray/Menu/StatusItemController.hpp"

/// Returns the ports of the tray's parts, implemented by its components, the registry and the
/// settings. Each port refers to `components` and `control`, which must outlive it, and owns a
/// share of the other parts that it uses.
namespace zephyl::ports {

LogWindows::Port logWindows(const Components& components);
WindowLauncher::Port windowLauncher(const Components& components, ControlServer& control);
ApprovalPrompts::Port approvalPrompts(const Components& components,
                                      const std::shared_ptr<AgentMonitor>& monitor);
ServerActions::Port serverActions(const Components& components);
FolderSharing::Port folderSharing(const Components& components,
                                  const std::shared_ptr<AgentMonitor>& monitor);
ReplacementNotice::Port replacementNotice(const Components& components);
/// Returns a port without `perform`, which the caller must set.
StatusItemController::Port statusItem(const Components& components,
                                      const std::shared_ptr<AgentMonitor>& monitor);
/// Returns a port without `serverActions` and `folderSharing`, which the caller must set.
ControlAPI::Port controlAPI(const Components& components,
                            const std::shared_ptr<AgentMonitor>& monitor,
                            const std::shared_ptr<WindowLauncher>& windows);

/// The parts that execute commands.
struct CommandOwners {
  std::shared_ptr<AgentMonitor> monitor;
  std::shared_ptr<WindowLauncher> windows;
  std::shared_ptr<ApprovalPrompts> approvals;
  std::shared_ptr<ServerActions> servers;
};
/// Returns a port without `diagnostics` and `quit`, which the caller must set.
CommandServer::Port commands(const Components& components, ControlServer& control,
                             const CommandSetup& setup, const CommandOwners& owners);

}  // namespace zephyl::ports
