#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <random>

#include <unistd.h>

#include "Desktop/Freedesktop/SingleInstance.hpp"
#include "System/Bundle.hpp"
#include "System/CoreDumps.hpp"
#include "System/Environment.hpp"
#include "System/Files.hpp"
#include "System/Guardian.hpp"
#include "System/Log.hpp"
#include "System/MainLoop.hpp"
#include "System/ProcessState.hpp"
#include "System/Reactor.hpp"
#include "System/SignalWatcher.hpp"
#include "System/SystemClock.hpp"
#include "System/SystemProcessLauncher.hpp"
#include "System/ThreadPool.hpp"
#include "ZephylTray/AppDelegate.hpp"
#include "ZephylTray/CommandLine.hpp"
#include "ZephylTray/DesktopChoice.hpp"
#include "ZephylTray/Servers.hpp"
#include "ZephylTray/SingleOwnerLock.hpp"
#include "ZephylTray/TrialStart.hpp"
#include "ZephylTray/UpdaterHelper.hpp"

namespace zephyl {
namespace {

double randomFraction() {
  static std::random_device source;
  return std::generate_canonical<double, 32>(source);
}

/// What becomes of this process when the tray has ended: it exits, or goes on as the program that
/// an update has put at its path.
struct Ending {
  int status = EXIT_SUCCESS;
  bool relaunch = false;
};

/// Runs the tray until it is told to end.
Ending runTray(Guardian& guardian, const CommandLine& commandLine,
               std::vector<std::string> arguments) {
  // The reactor goes before the pool: what it still delivers may end up there.
  MainLoop mainLoop;
  ThreadPool pool;
  Reactor reactor;
  SystemClock clock(reactor);
  SystemProcessLauncher launcher(reactor, guardian);
  const Servers::Store servers(pool, clock);
  const Runtime runtime{mainLoop, reactor, pool, clock, launcher};
  std::atomic<bool> relaunch = false;
  const auto quit = [&](int) {
    relaunch = false;  // whoever ends the tray means its end
    mainLoop.quit();
  };
  UpdateSetup updates{.program = updaterProgram(Bundle::main()),
                      .prefix = installationPrefix(Bundle::main()),
                      .arguments = std::move(arguments),
                      .relaunch =
                          [&] {
                            relaunch = true;
                            mainLoop.quit();
                          },
                      .random = randomFraction};
  const SignalWatcher signals(reactor, {SIGTERM, SIGINT}, quit);
  const auto chosen = DesktopChoice::make(commandLine.mode, runtime);
  std::optional<SignalWatcher> hangUp;
  if (chosen.endsAtHangUp && !hangUpIsIgnored())
    hangUp.emplace(reactor, std::initializer_list<int>{SIGHUP}, quit);

  const auto delegate = std::make_shared<AppDelegate>(
      runtime, *chosen.desktop, *chosen.dialogs,
      UpdaterHelper::factory(runtime, *chosen.dialogs, std::move(updates)));
  mainLoop.async([&] { delegate->applicationDidFinishLaunching(); });
  mainLoop.run();
  delegate->applicationWillTerminate();
  mainLoop.close();
  const int status = delegate->exitStatus();
  return {.status = status, .relaunch = relaunch && status == EXIT_SUCCESS};
}

/// There is no second tray for the same base directory: the one that runs is asked to show itself.
int handOver(const SingleOwnerLock::Taken& taken, const std::string& activationToken) {
  if (taken.holder && SingleInstance::askToReopen(*taken.holder, activationToken)) {
    log("already running as process {}; asked it to show itself", *taken.holder);
    return EXIT_SUCCESS;
  }
  if (taken.holder) {
    log("already running as process {}", *taken.holder);
  } else {
    log("already running");
  }
  return EXIT_FAILURE;
}

Ending start(const CommandLine& commandLine, const std::string& activationToken,
             std::vector<std::string> arguments) {
  if (const auto claimed = Servers::claimBaseDir(); !claimed) {
    log("could not start: {}", claimed.error().message);
    return {EXIT_FAILURE};
  }
  const auto lock = SingleOwnerLock::acquire(joinPath(Servers::baseDir(), "tray.lock"));
  if (const auto* taken = std::get_if<SingleOwnerLock::Taken>(&lock)) {
    return {handOver(*taken, activationToken)};
  }
  if (const auto* error = std::get_if<Error>(&lock)) {
    log("could not start: {}", error->message);
    return {EXIT_FAILURE};
  }
  if (returnsToPreviousVersion(Bundle::main())) return {.relaunch = true};
  auto guardian = Guardian::start();
  if (!guardian) {
    log("could not start: {}", guardian.error().message);
    return {EXIT_FAILURE};
  }
  try {
    return runTray(*guardian, commandLine, std::move(arguments));
  } catch (const std::exception& error) {  // the system has no thread, descriptor or memory to give
    log("could not go on: {}", error.what());
    return {EXIT_FAILURE};
  }
}

/// Returns only when there is nothing to go on as.
int becomeUpdated(char** arguments) {
  const std::string executable = Bundle::main().executable().value_or("");
  restoreDescriptorLimit();
  coreDumps::restore();
  ::execv(executable.c_str(), arguments);
  log("could not restart: {}", systemError(executable, errno).message);
  return EXIT_FAILURE;
}

}  // namespace
}  // namespace zephyl

int main(int argc, char** argv) {
  using namespace zephyl;
  establishProcessState();
  coreDumps::disable();
  Bundle::setMain(Bundle(Bundle::runningExecutable()));
  // Whoever started this program lets its first window come to the front; nobody else's.
  const std::string activationToken = environmentVariable("XDG_ACTIVATION_TOKEN").value_or("");
  removePrivateEnvironmentVariables();
  const auto commandLine = CommandLine::parse(argc, argv);
  if (!commandLine) {
    std::cerr << "zephyl-tray: " << commandLine.error().message << "\nTry 'zephyl-tray --help'.\n";
    return 2;
  }
  if (!commandLine->answer.empty()) {
    std::cout << commandLine->answer;
    return EXIT_SUCCESS;
  }
  const Ending ending = start(*commandLine, activationToken, {argv + 1, argv + argc});
  return ending.relaunch ? becomeUpdated(argv) : ending.status;
}
