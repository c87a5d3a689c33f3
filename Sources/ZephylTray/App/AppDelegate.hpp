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

/// The tray controller: constructs the components and the parts that hold the tray's state,
/// connects them, starts them in a fixed order, and stops them in a fixed order. It holds no logic
/// of theirs; each part says in its header what it does and what it needs.
///
/// Main thread only. Owned by a `shared_ptr`, by `main`, for the life of the process. The callbacks
/// that it gives to components hold it weakly and do nothing once it is gone.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
 public:
  /// What `runtime` refers to, `desktop` and `dialogs` outlive it. `updates` makes the framework
  /// that updates this program; if it is null, the program is not updated. `commands` says how the
  /// commands of other programs are served.
  AppDelegate(const Runtime& runtime, Desktop& desktop, Dialogs& dialogs,
              UpdaterFactory updates = nullptr, CommandSetup commands = {});

  /// Starts everything, in order. Returns at once; what takes time goes on in tasks.
  void applicationDidFinishLaunching();
  /// Stops everything, in order, and waits for the children: a few seconds at most.
  void applicationWillTerminate();
  /// The user has started the running program again.
  void applicationShouldHandleReopen();
  /// Ends the program, in order.
  void quit();
  /// The status that the program ends with: a failure if it could not go on.
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
  void launchAgentUnlessOneAnswers();
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
  std::shared_ptr<StatusItemController> statusItem_;  // created at launch, as is the next
  std::shared_ptr<CommandServer> commands_;
  ReplacementNotice replacement_;
  int exitStatus_ = 0;
  // Last, so that it goes first: its thread asks all of the above.
  ControlServer control_;
};

}  // namespace zephyl
