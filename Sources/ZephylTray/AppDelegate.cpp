#include "ZephylTray/AppDelegate.hpp"

#include <fmt/format.h>

#include "System/Bundle.hpp"
#include "System/MainLoop.hpp"
#include "ZephylTray/Config.hpp"
#include "ZephylTray/Servers.hpp"

namespace zephyl {

namespace {
constexpr std::chrono::seconds agentRequestTimeout{4};
}

AppDelegate::AppDelegate(const Runtime& runtime, Desktop& desktop)
    : runtime_(runtime),
      desktop_(desktop),
      client_(Config::apiBaseURL(),
              HTTPSession(runtime.reactor, {.requestTimeout = agentRequestTimeout})),
      agent_(std::make_shared<AgentProcess>(runtime)),
      tailnet_(std::make_shared<TailnetManager>(runtime)) {}

void AppDelegate::applicationDidFinishLaunching() {
  Servers::migrateIfNeeded();
  statusItem_ = &desktop_.statusItem();
  updateIcon();
  wireAgent();
  wireTailnets();
  startActivityStream();
  if (Bundle::main().identifier()) desktop_.requestNotificationAuthorization();
  launchAgentUnlessOneAnswers();
  tailnet_->syncWithStore();
  pollTimer_ = runtime_.clock.every(
      pollInterval, [&mainLoop = runtime_.mainLoop, poll = weakly([](AppDelegate& self) {
                                                      self.refresh();
                                                    })] { mainLoop.async(poll); });
  refresh();
}

void AppDelegate::wireAgent() {
  agent_->onStateChange = weakly([](AppDelegate& self) { self.refresh(); });
  agent_->onNonZeroExit =
      weakly([](AppDelegate& self, int status, const std::vector<std::string>& recentLog) {
        self.desktop_.presentLogWindow(
            {.title = "Agent Exited Unexpectedly",
             .message = fmt::format(
                 "The Zephyl agent didn't start cleanly — it exited with code {}.", status),
             .log = recentLog});
      });
  agent_->onLaunchFailure = weakly([](AppDelegate& self, const std::string& message) {
    self.desktop_.presentLogWindow({.title = "Agent Failed to Start",
                                    .message = "The Zephyl agent could not be started: " + message,
                                    .log = self.agent_->recentLog()});
  });
}

void AppDelegate::wireTailnets() {
  tailnet_->onStateChange = weakly([](AppDelegate& self) { self.refresh(); });
  tailnet_->onAddressLearned = weakly([](AppDelegate& self) { self.agent_->restart(); });
}

void AppDelegate::launchAgentUnlessOneAnswers() {
  runtime_.mainLoop.async(weakly([](AppDelegate& self) {
    self.pollOnce(self.weakly([](AppDelegate& polled) {
      if (!polled.agentView_.reachable) polled.agent_->start();
    }));
  }));
}

void AppDelegate::applicationWillTerminate() {
  sseTask_.reset();
  agent_->stop();
  tailnet_->stopAll();
  agent_->awaitExit(runtime_.clock.now() + AgentProcess::terminationGrace);
}

}  // namespace zephyl
