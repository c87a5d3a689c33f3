#pragma once

#include <memory>

#include "ZephylTray/Actions/FolderSharing.hpp"
#include "ZephylTray/Actions/LogWindows.hpp"
#include "ZephylTray/Actions/ServerActions.hpp"
#include "ZephylTray/Actions/WindowLauncher.hpp"
#include "ZephylTray/Agent/AgentMonitor.hpp"
#include "ZephylTray/App/CommandSetup.hpp"
#include "ZephylTray/App/Components.hpp"
#include "ZephylTray/App/ReplacementNotice.hpp"
#include "ZephylTray/Approvals/ApprovalPrompts.hpp"
#include "ZephylTray/Commands/Server/CommandServer.hpp"
#include "ZephylTray/Control/ControlServer.hpp"
#include "ZephylTray/Menu/StatusItemController.hpp"

namespace zephyl {

class ControlAPI;

/// The tray controller. Constructs the components and the parts that own the tray's state, connects
/// them, and starts and stops them in a fixed order. The logic is in the parts, and each part's
/// header documents it.
///
/// Main thread only. Owned by a `shared_ptr` in `main` for the lifetime of the process. The
/// callbacks that it passes to components hold it weakly and do nothing after its destruction.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
 public:
  /// The objects that `runtime` refers to, `desktop` and `dialogs` must outlive it. `updates`
  /// creates the framework that updates this program. If it is null, the program is not updated.
  /// `commands` describes how commands of other programs are served.
  AppDelegate(const Runtime& runtime, Desktop& desktop, Dialogs& dialogs,
              UpdaterFactory updates = nullptr, CommandSetup commands = {});

  /// Starts everything in order. Returns at once: long operations continue in tasks.
  void applicationDidFinishLaunching();
  /// Stops everything in order and waits for the children, for a few seconds at most.
  void applicationWillTerminate();
  /// Handles that the user has started the running program again.
  void applicationShouldHandleReopen();
  /// Ends the program in order.
  void quit();
  /// Returns the exit status of the program: a failure if it could not continue.
  [[nodiscard]] int exitStatus() const { return exitStatus_; }

  [[nodiscard]] const AgentSnapshot& agentSnapshot() const { return monitor_->snapshot(); }

 private:
  void showStatusItem();
  void connectDesktop();
  void connectAgent();
  void connectTailnets();
  void connectUpdater();
  void agentChanged(const AgentSnapshot& snapshot, AgentMonitor::Update update);
  void tailnetsChanged();
  void launchAgentUnlessReachable();
  bool startControlServer();
  void startCommandServer(const std::shared_ptr<const ControlAPI>& controlAPI);
  void perform(const TrayAction& action);

  const Components components_;
  const CommandSetup commandSetup_;
  const std::shared_ptr<AgentMonitor> monitor_;
  const std::shared_ptr<LogWindows> logs_;
  const std::shared_ptr<WindowLauncher> windows_;
  const std::shared_ptr<ApprovalPrompts> approvals_;
  const std::shared_ptr<ServerActions> servers_;
  const std::shared_ptr<FolderSharing> folders_;
  std::shared_ptr<StatusItemController> statusItem_;  // created at launch, as is the next member
  std::shared_ptr<CommandServer> commands_;
  ReplacementNotice replacement_;
  int exitStatus_ = 0;
  // Last, so that it is destroyed first, because its thread uses all of the above.
  ControlServer control_;
};

}  // namespace zephyl
