#include "ZephylTray/App/Ports.hpp"

#include <utility>

#include "Helpers/Updates/Client/TrialStart.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/UserDefaults.hpp"
#include "System/Network/HostLookup.hpp"
#include "ZephylTray/Actions/LogFile.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl::ports {

namespace {

constexpr auto enrolmentKey = "tailnetFingerprint";

auto presentingAlerts(Dialogs& dialogs) {
  return [&dialogs](const Alert& alert, auto done) {
    return dialogs.presentAlert(alert, std::move(done));
  };
}

std::optional<std::string> addressOf(const TailnetManager::Instance& tailnet) {
  return tailnet ? tailnet->state().boundAddress : std::nullopt;
}

std::optional<TailnetView> viewOf(const TailnetManager::Instance& tailnet) {
  return tailnet ? std::optional(TailnetView::of(*tailnet)) : std::nullopt;
}

TailnetSummary summaryOf(const TailnetManager& tailnets) {
  TailnetSummary summary;
  for (const auto& tailnet : tailnets.instances()) {
    ++summary.tailnets;
    if (tailnet->isRunning() && tailnet->state().boundAddress) ++summary.usable;
  }
  return summary;
}

std::map<std::string, TailnetView, std::less<>> viewsOf(const TailnetManager& tailnets) {
  std::map<std::string, TailnetView, std::less<>> views;
  for (const auto& tailnet : tailnets.instances()) {
    views.emplace(tailnet->server().id, TailnetView::of(*tailnet));
  }
  return views;
}

std::vector<Diagnostics::Tailnet> reportsOf(const TailnetManager& tailnets) {
  std::vector<Diagnostics::Tailnet> reports;
  for (const auto& tailnet : tailnets.instances()) {
    reports.push_back({.serverId = tailnet->server().id,
                       .running = tailnet->isRunning(),
                       .state = tailnet->state(),
                       .log = tailnet->recentLog()});
  }
  return reports;
}

UpdateView updateView(const Updater& updater) {
  if (!Updater::isAvailable()) return {};
  return {.available = true,
          .currentVersion = Updater::currentVersion(),
          .installPostponed = updater.hasPostponedInstall(),
          .pendingVersion = updater.pendingVersion(),
          .canCheck = updater.canCheckForUpdates()};
}

void enrol(TailnetManager& tailnets, const ServerEntry& server, SecretString preauthKey) {
  tailnets.retire(server.id);
  tailnets.instance(server)->startRedeeming(std::move(preauthKey));
}

void setEnrolment(const std::optional<std::string>& fingerprint) {
  if (fingerprint) {
    Config::defaults().setString(enrolmentKey, *fingerprint);
  } else {
    Config::defaults().remove(enrolmentKey);
  }
}

}  // namespace

LogWindows::Port logWindows(const Components& components) {
  LogWindows::Port port;
  port.present = [&components](const LogWindow& window, auto notify) {
    return components.dialogs.presentLogWindow(window, std::move(notify));
  };
  port.write = [&components](const std::string& text) {
    return writeLogFile(text, components.runtime.clock.calendarNow());
  };
  port.open = [&components](const std::string& path, Editor editor) {
    components.desktop.openFile(path, editor);
  };
  return port;
}

WindowLauncher::Port windowLauncher(const Components& components, ControlServer& control) {
  WindowLauncher::Port port;
  port.isInstalled = &DesktopApp::isInstalled;
  port.launch = [&components](const DesktopLaunch& launch) {
    components.desktopApp->launch(launch);
  };
  port.setPendingRoute = [&control](std::string screen) {
    control.setPendingRoute(std::move(screen));
  };
  port.controlAccess = [&control]() -> std::optional<ControlAccess> {
    if (!control.isListening()) return std::nullopt;
    return ControlAccess{.token = control.token(), .port = control.port()};
  };
  port.enabledServers = &Servers::enabled;
  port.primaryAddress = [&components] { return addressOf(components.tailnet->primary()); };
  port.addressOf = [&components](const std::string& id) {
    return addressOf(components.tailnet->find(id));
  };
  port.openURL = [&components](const std::string& url) { components.desktop.openURL(url); };
  port.lookUpHost = [&components](const std::string& host, auto done) {
    const auto& runtime = components.runtime;
    zephyl::lookUpHost(runtime.launcher, runtime.mainLoop, host, std::move(done));
  };
  return port;
}

ReplacementNotice::Port replacementNotice(const Components& components) {
  constexpr auto running = "/proc/self/exe";
  const std::string executable = Bundle::main().executable().value_or("");
  return {
      .isReplaced =
          [executable, isWatched = isSameFile(running, executable)] {
            return isWatched && fileExists(executable) && !isSameFile(running, executable);
          },
      .isUpdatingItself = [] { return isUpdateUnconfirmed(Bundle::main()); },
      .notify =
          [&components](const Notification& notification) {
            if (Bundle::main().identifier()) components.desktop.postNotification(notification);
          },
  };
}

ApprovalPrompts::Port approvalPrompts(const Components& components,
                                      const std::shared_ptr<AgentMonitor>& monitor) {
  using Decided = ApprovalPrompts::Decided;
  ApprovalPrompts::Port port;
  port.notify = [&components](const Notification& notification) {
    if (Bundle::main().identifier()) components.desktop.postNotification(notification);
  };
  port.withdraw = [&components](const std::string& id) {
    components.desktop.removeNotification(id);
  };
  port.ask = presentingAlerts(components.dialogs);
  port.decide = [&components](const auto& id, const auto& decision, const auto& confirm,
                              const Decided& done) {
    components.agentAccess.client().decideApproval(id, decision, confirm, done);
  };
  port.revoke = [&components](const EscapeGrant& grant, Decided done) {
    components.agentAccess.client().revokeEscapeGrant(
        grant.kind, grant.path, [done = std::move(done)](const auto& grants) {
          done(grants ? Result<void>() : grants.error());
        });
  };
  port.refresh = [monitor] { monitor->refresh(); };
  port.pending = [monitor]() -> std::optional<std::vector<PendingApproval>> {
    const auto& activity = monitor->snapshot().activity;
    return activity ? std::optional(activity->pendingApprovals) : std::nullopt;
  };
  const auto& runtime = components.runtime;
  port.now = [&runtime] { return runtime.clock.now(); };
  port.after = [&runtime](Duration delay, Task task) {
    runtime.clock.afterDetached(delay, runtime.mainLoop.later(std::move(task)));
  };
  return port;
}

ServerActions::Port serverActions(const Components& components) {
  const auto& tailnet = components.tailnet;
  return {
      .all = &Servers::all,
      .matching = &Servers::matching,
      .add = &Servers::add,
      .update = &Servers::update,
      .remove = &Servers::remove,
      .setEnrolment = &setEnrolment,
      .enrol = [tailnet](const ServerEntry& server,
                         SecretString key) { enrol(*tailnet, server, std::move(key)); },
      .suspendTailnet = [tailnet](const std::string& id) { tailnet->suspend(id); },
      .resumeTailnet = [tailnet](const std::string& id) { tailnet->resume(id); },
      .whenTailnetsEnded = [tailnet](Task then) { tailnet->whenRetired(std::move(then)); },
      .syncTailnets = [tailnet] { tailnet->syncWithStore(); },
      .restartAgent = [agent = components.agent] { agent->restart(); },
      .ask = presentingAlerts(components.dialogs),
  };
}

FolderSharing::Port folderSharing(const Components& components,
                                  const std::shared_ptr<AgentMonitor>& monitor) {
  FolderSharing::Port port;
  port.getRoots = [&components](auto done) {
    components.agentAccess.client().getRoots(std::move(done));
  };
  port.addRoot = [&components](const auto& path, const auto& id, auto done) {
    components.agentAccess.client().addRoot(path, std::nullopt, {id}, std::move(done));
  };
  port.removeRoot = [&components](const auto& path, auto done) {
    components.agentAccess.client().removeRoot(path, std::move(done));
  };
  port.setRootServers = [&components](const auto& path, const auto& ids, auto done) {
    components.agentAccess.client().setRootServers(path, ids, std::move(done));
  };
  port.refresh = [monitor] { monitor->refresh(); };
  port.desktopPicker = [&components](const FolderRequest& request, auto done) {
    components.desktop.chooseFolder(request, std::move(done));
  };
  port.ownPicker = [&components](const FolderRequest& request, auto done) {
    return components.dialogs.chooseFolder(request, std::move(done));
  };
  port.servers = &Servers::all;
  return port;
}

StatusItemController::Port statusItem(const Components& components,
                                      const std::shared_ptr<AgentMonitor>& monitor) {
  StatusItemController::Port port;
  port.summary = [&components, monitor] {
    return StatusItemController::Summary{.agent = monitor->snapshot(),
                                         .known = monitor->hasPolled(),
                                         .tailnets = summaryOf(*components.tailnet)};
  };
  port.menu = [&components, monitor] {
    return StatusMenuState{.agent = monitor->snapshot(),
                           .tailnetProgramsFound = Config::tailnetProgramsInstalled(),
                           .servers = Servers::all(),
                           .tailnets = viewsOf(*components.tailnet),
                           .updates = updateView(*components.updater)};
  };
  return port;
}

ControlAPI::Port controlAPI(const Components& components,
                            const std::shared_ptr<AgentMonitor>& monitor,
                            const std::shared_ptr<WindowLauncher>& windows) {
  ControlAPI::Port port;
  port.tailnetProgramsInstalled = &Config::tailnetProgramsInstalled;
  port.isEnrolled = [] { return !Config::defaults().string(enrolmentKey).value_or("").empty(); };
  port.anyTailnetRunning = [&components] { return components.tailnet->anyRunning(); };
  port.primaryTailnet = [&components] { return viewOf(components.tailnet->primary()); };
  port.tailnet = [&components](const std::string& id) {
    return viewOf(components.tailnet->find(id));
  };
  port.tailnetReports = [&components] { return reportsOf(*components.tailnet); };
  port.servers = &Servers::all;
  port.agent = [monitor]() -> const AgentSnapshot& { return monitor->snapshot(); };
  port.webAddressOf = [windows](const auto& bound) { return windows->webAddressOf(bound); };
  port.tray = [&components] {
    return Diagnostics::Tray{.version = Updater::currentVersion(),
                             .trayPort = components.agentAccess.port(),
                             .repoRoot = Config::repoRoot(),
                             .standalone = Config::bundledRuntimeDir().has_value()};
  };
  port.agentProcess = [&components] {
    return Diagnostics::Agent{.running = components.agent->isRunning(),
                              .managed = components.agent->isManaged()};
  };
  port.restartAgent = [&components] { components.agent->restart(); };
  port.getRoots = [&components](auto done) {
    components.agentAccess.client().getRoots(std::move(done));
  };
  return port;
}

}  // namespace zephyl::ports
