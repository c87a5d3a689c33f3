#include "ZephylTray/App/AppDelegate.hpp"

#include <cstdlib>
#include <utility>
#include <variant>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Overloaded.hpp"
#include "System/Files/Bundle.hpp"
#include "ZephylTray/App/Ports.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

Components makeComponents(const Runtime& runtime, Desktop& desktop, Dialogs& dialogs,
                          UpdaterFactory updates) {
  AgentAccess agentAccess(runtime, Config::trayPort());
  return {.runtime = runtime,
          .desktop = desktop,
          .dialogs = dialogs,
          .agentAccess = agentAccess,
          .agent = std::make_shared<AgentProcess>(runtime, agentAccess.port()),
          .tailnet = std::make_shared<TailnetManager>(runtime),
          .desktopApp = std::make_shared<DesktopApp>(runtime, desktop),
          .updater = std::make_shared<Updater>(runtime, desktop, std::move(updates))};
}

}  // namespace

AppDelegate::AppDelegate(const Runtime& runtime, Desktop& desktop, Dialogs& dialogs,
                         UpdaterFactory updates, CommandSetup commands)
    : components_(makeComponents(runtime, desktop, dialogs, std::move(updates))),
      commandSetup_(std::move(commands)),
      monitor_(std::make_shared<AgentMonitor>(runtime.mainLoop, runtime.clock,
                                              components_.agentAccess.monitorPort())),
      logs_(std::make_shared<LogWindows>(ports::logWindows(components_))),
      windows_(std::make_shared<WindowLauncher>(ports::windowLauncher(components_, control_))),
      approvals_(std::make_shared<ApprovalPrompts>(ports::approvalPrompts(components_, monitor_))),
      servers_(std::make_shared<ServerActions>(ports::serverActions(components_))),
      folders_(std::make_shared<FolderSharing>(ports::folderSharing(components_, monitor_))),
      replacement_(ports::replacementNotice(components_)),
      control_(runtime.mainLoop) {}

void AppDelegate::applicationDidFinishLaunching() {
  Servers::migrateIfNeeded();
  showStatusItem();
  connectDesktop();
  connectAgent();
  connectTailnets();
  monitor_->startActivityStream();
  if (Bundle::main().identifier()) components_.desktop.requestNotificationAuthorization();
  connectUpdater();
  components_.updater->start();
  launchAgentUnlessReachable();
  components_.tailnet->syncWithStore();
  monitor_->startPolling();
  monitor_->refresh();
  if (startControlServer()) windows_->openDesktopWindow();
  // The token of the start must not reach a later window.
  components_.desktop.consumeActivationToken();
}

void AppDelegate::applicationWillTerminate() {
  if (commands_) commands_->stop();
  monitor_->stopActivityStream();
  components_.agent->stop();
  components_.tailnet->stopAll();
  control_.cancel();
  components_.desktopApp->quit();
  const Instant deadline = components_.runtime.clock.now() + AgentProcess::terminationGrace;
  components_.agent->awaitExit(deadline);
  components_.desktopApp->awaitExit(deadline);
}

void AppDelegate::applicationShouldHandleReopen() {
  windows_->openNextStep();
}

void AppDelegate::quit() {
  components_.runtime.mainLoop.quit();
}

void AppDelegate::showStatusItem() {
  auto port = ports::statusItem(components_, monitor_);
  port.perform =
      weakly(this, [](AppDelegate& self, const TrayAction& action) { self.perform(action); });
  const auto& runtime = components_.runtime;
  statusItem_ = std::make_shared<StatusItemController>(
      runtime.mainLoop, runtime.clock, components_.desktop.statusItem(), std::move(port));
  statusItem_->start();
  servers_->onChange = weakly(statusItem_, [](StatusItemController& item) { item.rebuildMenu(); });
}

void AppDelegate::connectDesktop() {
  components_.desktop.setEvents({
      .reopened = weakly(this, [](AppDelegate& self) { self.applicationShouldHandleReopen(); }),
      .notificationActivated = weakly(
          approvals_,
          [](ApprovalPrompts& approvals, const std::string& id) { approvals.reviewNotified(id); }),
  });
}

void AppDelegate::connectAgent() {
  auto& agent = *components_.agent;
  monitor_->onChange =
      weakly(this, [](AppDelegate& self, const AgentSnapshot& snapshot,
                      AgentMonitor::Update update) { self.agentChanged(snapshot, update); });
  agent.onStateChange = weakly(monitor_, [](AgentMonitor& monitor) { monitor.refresh(); });
  agent.onNonZeroExit =
      weakly(logs_, [](LogWindows& logs, int status, const std::vector<std::string>& recentLog) {
        logs.presentLogWindow(
            {.title = "Agent Exited Unexpectedly",
             .message = formatText(
                 "The Zephyl agent didn't start cleanly — it exited with code {}.", status)},
            recentLog);
      });
  agent.onLaunchFailure = weakly(this, [](AppDelegate& self, const std::string& message) {
    self.logs_->presentLogWindow({.title = "Agent Failed to Start",
                                  .message = "The Zephyl agent could not be started: " + message},
                                 self.components_.agent->recentLog());
  });
}

void AppDelegate::agentChanged(const AgentSnapshot& snapshot, AgentMonitor::Update update) {
  using Update = AgentMonitor::Update;
  if (update == Update::poll) {
    replacement_.check();
    return statusItem_->rebuildMenu();
  }
  approvals_->processPendingApprovals(std::vector(snapshot.activity->pendingApprovals));
  components_.updater->agentDidUpdateActivity(snapshot.activity->busy);
  statusItem_->showEvent(update == Update::activity);
}

void AppDelegate::connectTailnets() {
  auto& tailnet = *components_.tailnet;
  tailnet.onStateChange = weakly(this, [](AppDelegate& self) { self.tailnetsChanged(); });
  tailnet.onTargetUnresolved =
      weakly(windows_, [](WindowLauncher& windows, const ServerEntry& server, const std::string&) {
        windows.announceUnresolvedTarget(server);
      });
  tailnet.onAddressLearned =
      weakly(components_.agent, [](AgentProcess& agent) { agent.restart(); });
}

void AppDelegate::tailnetsChanged() {
  if (!components_.tailnet->instances().empty()) windows_->lookUpInternalHost();
  monitor_->refresh();
}

void AppDelegate::connectUpdater() {
  auto& updater = *components_.updater;
  updater.onStateChange =
      weakly(statusItem_, [](StatusItemController& item) { item.rebuildMenu(); });
  updater.isAgentBusy = monitor_->busyQuery();
}

/// Runs after the start, so that an agent that is already listening is used.
void AppDelegate::launchAgentUnlessReachable() {
  components_.runtime.mainLoop.async(weakly(this, [](AppDelegate& self) {
    self.monitor_->pollOnce(weakly(&self, [](AppDelegate& polled) {
      if (!polled.agentSnapshot().reachable) polled.components_.agent->start();
    }));
  }));
}

/// Returns false, and ends the program with a failure, if the configured port is out of range.
bool AppDelegate::startControlServer() {
  auto port = ports::controlAPI(components_, monitor_, windows_);
  port.serverActions = servers_;
  port.folderSharing = folders_;
  ControlAPI::install(control_, components_.runtime.mainLoop, port);
  if (control_.start(Config::onboardingPort())) {
    startCommandServer(std::make_shared<const ControlAPI>(port));
    return true;
  }
  exitStatus_ = EXIT_FAILURE;
  quit();
  return false;
}

void AppDelegate::startCommandServer(const std::shared_ptr<const ControlAPI>& controlAPI) {
  if (commandSetup_.baseDirectory.empty()) return;
  auto port = ports::commands(
      components_, control_, commandSetup_,
      {.monitor = monitor_, .windows = windows_, .approvals = approvals_, .servers = servers_});
  port.diagnostics = [controlAPI] { return controlAPI->diagnostics(); };
  port.quit = weakly(this, [](AppDelegate& self) { self.quit(); });
  commands_ = std::make_shared<CommandServer>(components_.runtime, std::move(port));
  commands_->start(commandSetup_.baseDirectory);
}

void AppDelegate::perform(const TrayAction& action) {
  using namespace menuActions;
  const auto& tailnet = *components_.tailnet;
  const auto openScreen = [this](const std::string& id, const char* screen) {
    windows_->openInShell("servers/" + id + "/" + screen);
  };
  std::visit(
      Overloaded{
          [&](const ReviewPendingApprovals&) { approvals_->reviewPendingApprovals(); },
          [&](const OpenDesktopWindow&) { windows_->openDesktopWindow(); },
          [&](const RedeemInvite&) {
            if (!windows_->openInShellIfInstalled("join")) servers_->promptForInviteKey();
          },
          [&](const OpenServerInBrowser& on) { windows_->openServerInBrowser(on.serverId); },
          [&](const ConnectServer& on) { servers_->connectServer(on.serverId); },
          [&](const RenameServer& on) { openScreen(on.serverId, "rename"); },
          [&](const RemoveServer& on) { openScreen(on.serverId, "remove"); },
          [&](const ShowTailnetLogs&) {
            logs_->presentLogWindow({.title = "Tailnet Logs", .requestedByUser = true},
                                    tailnet.recentLog());
          },
          [&](const RestartTailnet&) {
            for (const auto& each : tailnet.instances()) each->restart();
          },
          [&](const RevokeEscapeGrant& revoke) { approvals_->revokeEscapeGrant(revoke.grant); },
          [&](const CheckForUpdates&) { components_.updater->checkForUpdates(); },
          [&](const Quit&) { quit(); },
      },
      action);
}

}  // namespace zephyl
