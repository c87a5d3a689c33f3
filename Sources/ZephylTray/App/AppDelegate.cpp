#include "ZephylTray/App/AppDelegate.hpp"

#include <cstdlib>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Format.hpp"
#include "System/Files/Bundle.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {
constexpr std::chrono::seconds agentRequestTimeout{4};
}

AppDelegate::AppDelegate(const Runtime& runtime, Desktop& desktop, Dialogs& dialogs,
                         UpdaterFactory updates)
    : runtime_(runtime),
      desktop_(desktop),
      dialogs_(dialogs),
      agentPort_(Config::trayPort()),
      client_(runtime.mainLoop, Config::apiBaseURL(agentPort_),
              HTTPSession(runtime.reactor,
                          {.requestTimeout = agentRequestTimeout,
                           .onConnected =
                               [peer = agentPeer_](const std::string& address, std::uint16_t port) {
                                 return peer->verify(address, port);
                               }})),
      agent_(std::make_shared<AgentProcess>(runtime, agentPort_)),
      tailnet_(std::make_shared<TailnetManager>(runtime)),
      desktopApp_(std::make_shared<DesktopApp>(runtime, desktop)),
      updater_(std::make_shared<Updater>(runtime, desktop, std::move(updates))),
      control_(runtime.mainLoop) {}

void AppDelegate::applicationDidFinishLaunching() {
  Servers::migrateIfNeeded();
  statusItem_ = &desktop_.statusItem();
  updateIcon();
  wireMenu();
  rebuildMenu();
  wireDesktop();
  wireAgent();
  wireTailnets();
  startActivityStream();
  if (Bundle::main().identifier()) desktop_.requestNotificationAuthorization();
  wireUpdater();
  updater_->start();
  launchAgentUnlessOneAnswers();
  tailnet_->syncWithStore();
  lookUpInternalHost();
  startPolling();
  refresh();
  if (startControlServer()) desktopApp_->launch(desktopLaunch());
}

void AppDelegate::wireAgent() {
  agent_->onStateChange = weakly([](AppDelegate& self) { self.refresh(); });
  agent_->onNonZeroExit =
      weakly([](AppDelegate& self, int status, const std::vector<std::string>& recentLog) {
        self.presentLogWindow(
            {.title = "Agent Exited Unexpectedly",
             .message = formatText(
                 "The Zephyl agent didn't start cleanly — it exited with code {}.", status)},
            recentLog);
      });
  agent_->onLaunchFailure = weakly([](AppDelegate& self, const std::string& message) {
    self.presentLogWindow({.title = "Agent Failed to Start",
                           .message = "The Zephyl agent could not be started: " + message},
                          self.agent_->recentLog());
  });
}

/// What the user does with the desktop, apart from the menu.
void AppDelegate::wireDesktop() {
  desktop_.setEvents({
      .reopened = weakly([](AppDelegate& self) { self.applicationShouldHandleReopen(); }),
      .notificationActivated =
          weakly([](AppDelegate& self, const std::string& id) { self.reviewNotified(id); }),
  });
}

void AppDelegate::applicationShouldHandleReopen() {
  openInShell(needsOnboarding() ? "join" : "servers");
}

void AppDelegate::quit() {
  runtime_.mainLoop.quit();
}

void AppDelegate::wireTailnets() {
  tailnet_->onStateChange = weakly([](AppDelegate& self) { self.refresh(); });
  tailnet_->onTargetUnresolved =
      weakly([](AppDelegate& self, const ServerEntry& server, const std::string&) {
        self.announceUnresolvedTarget(server);
      });
  tailnet_->onAddressLearned = weakly([](AppDelegate& self) { self.agent_->restart(); });
}

void AppDelegate::wireUpdater() {
  updater_->onStateChange = weakly([](AppDelegate& self) { self.rebuildMenu(); });
  updater_->isAgentBusy = [busy = agentIsBusy_] { return busy->load(); };
}

void AppDelegate::launchAgentUnlessOneAnswers() {
  runtime_.mainLoop.async(weakly([](AppDelegate& self) {
    self.pollOnce(self.weakly([](AppDelegate& polled) {
      if (!polled.agentView_.reachable) polled.agent_->start();
    }));
  }));
}

void AppDelegate::startPolling() {
  const auto poll = weakly([](AppDelegate& self) { self.refresh(); });
  pollTimer_ = runtime_.clock.every(
      pollInterval, [&mainLoop = runtime_.mainLoop, poll] { mainLoop.async(poll); });
}

/// A port that is none cannot be served: the program ends, in order.
bool AppDelegate::startControlServer() {
  installControlHandlers();
  installFolderHandlers();
  if (control_.start(Config::onboardingPort())) return true;
  exitStatus_ = EXIT_FAILURE;
  quit();
  return false;
}

void AppDelegate::applicationWillTerminate() {
  sseTask_.reset();
  agent_->stop();
  tailnet_->stopAll();
  control_.cancel();
  desktopApp_->quit();
  const Instant deadline = runtime_.clock.now() + AgentProcess::terminationGrace;
  agent_->awaitExit(deadline);
  desktopApp_->awaitExit(deadline);
}

}  // namespace zephyl
