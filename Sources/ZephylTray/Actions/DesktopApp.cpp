#include "ZephylTray/Actions/DesktopApp.hpp"

#include <utility>

#include "Desktop/Desktop.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"
#include "System/Files/Shell.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {

namespace {

constexpr auto tokenVariable = "ZEPHYL_ONBOARD_TOKEN";
constexpr auto controlPortVariable = "ZEPHYL_ONBOARD_PORT";

/// Returns the app itself, or the program in the app's directory.
std::string executableOf(const std::string& app) {
  return isDirectory(app) ? joinPath(app, "AppRun") : app;
}

std::string developerCommand(const std::string& root) {
  return formatText("cd {} && {}", shellQuoted(root), Config::desktopLaunchCommand());
}

}  // namespace

Environment DesktopLaunch::environment(Environment inherited) const {
  Environment environment = std::move(inherited);
  environment.erase(tokenVariable);
  environment.erase(controlPortVariable);
  if (control) {
    environment[tokenVariable] = control->token;
    environment[controlPortVariable] = std::to_string(control->port);
  }
  if (serverURL) environment["ZEPHYL_URL"] = *serverURL;
  if (needsOnboarding) environment["ZEPHYL_ONBOARD"] = "1";
  return environment;
}

void DesktopApp::launch(const DesktopLaunch& context) {
  if (!activateRunning()) start(context);
}

void DesktopApp::quit() {
  const pid_t own = devProcess_ ? devProcess_->child->pid() : 0;
  for (const auto& application : desktop_.runningApplications(identifier)) {
    // The own child is asked below. Many programs treat a second request as "end at once".
    if (application.pid != own) desktop_.terminate(application);
  }
  if (!devProcess_) return;
  ending_ = std::exchange(devProcess_, std::nullopt)->child;
  ending_->terminateGroup();
}

void DesktopApp::awaitExit(Instant deadline) {
  const auto child = std::exchange(ending_, nullptr);
  if (!child || child->waitForExit(deadline - runtime_.clock.now())) return;
  log("{} ignored SIGTERM; killing it", child->pid());
  child->killGroup();
}

bool DesktopApp::isInstalled() {
  if (Config::bundledDesktopApp() || Config::desktopDevBinary()) return true;
  const auto root = Config::programRoot();
  return root && isDirectory(*root);
}

bool DesktopApp::activateRunning() {
  const auto running = desktop_.runningApplications(identifier);
  if (!running.empty()) {
    desktop_.activate(running.front());
    return true;
  }
  if (!devProcess_ || !devProcess_->child->isRunning()) return false;
  desktop_.activate({.identifier = identifier, .pid = devProcess_->child->pid()});
  return true;
}

void DesktopApp::start(const DesktopLaunch& context) {
  if (!context.control)
    log("starting the desktop app without the control API, which is not available");
  if (const auto app = Config::bundledDesktopApp()) {
    runDevProcess("Zephyl Window.app", executableOf(*app), {}, context);
  } else if (const auto binary = Config::desktopDevBinary()) {
    runDevProcess("desktop app", *binary, {}, context);
  } else if (const auto root = Config::programRoot()) {
    runDevProcess("desktop app", loginShell(), {"-lc", developerCommand(*root)}, context);
  } else {
    log("the desktop app is not installed; install it, or use the tray's menu and a browser");
  }
}

void DesktopApp::runDevProcess(const char* what, std::string executable,
                               std::vector<std::string> arguments, const DesktopLaunch& context) {
  const std::uint64_t number = ++launches_;
  ProcessOptions options{
      .executable = std::move(executable),
      .arguments = std::move(arguments),
      .environment = context.environment(currentEnvironment()),
      .onExit = runtime_.mainLoop.later(
          weakly(this, [number](DesktopApp& self, ExitStatus) { self.childExited(number); }))};
  setActivationToken(options.environment, desktop_.consumeActivationToken());
  auto child = runtime_.launcher.launch(std::move(options));
  if (!child) return log("failed to launch {}: {}", what, child.error().message);
  devProcess_.emplace(DevProcess{number, *std::move(child)});
}

/// The exit of a child that was replaced or asked to quit changes nothing.
void DesktopApp::childExited(std::uint64_t launch) {
  if (devProcess_ && devProcess_->number == launch) devProcess_.reset();
}

}  // namespace zephyl
