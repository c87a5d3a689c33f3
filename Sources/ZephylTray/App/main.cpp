#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <random>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include "Desktop/Freedesktop/Bus/SessionServices.hpp"
#include "Desktop/Freedesktop/SingleInstance.hpp"
#include "Helpers/Updates/Client/ProcessUpdater.hpp"
#include "Helpers/Updates/Client/TrialStart.hpp"
#include "System/Concurrency/EndSignals.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/SystemClock.hpp"
#include "System/Concurrency/TaskFailure.hpp"
#include "System/Concurrency/ThreadPool.hpp"
#include "System/Concurrency/UnixSignalWatcher.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"
#include "System/Processes/CoreDumps.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/ProcessState.hpp"
#include "System/Processes/ServiceManager.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/App/CommandLine.hpp"
#include "ZephylTray/App/FrontEnd.hpp"
#include "ZephylTray/App/SingleOwnerLock.hpp"
#include "ZephylTray/Commands/Protocol/CommandArguments.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {
namespace {

double randomFraction() {
  static std::random_device source;
  return std::generate_canonical<double, 32>(source);
}

/// What the process does after the tray has ended: exit, or execute the program that is installed
/// at its path.
struct Ending {
  int status = EXIT_SUCCESS;
  bool relaunch = false;
  /// The lock that the next program inherits when an update relaunches the tray.
  std::optional<SingleOwnerLock> lock = std::nullopt;
};

/// Returns the signals that end the tray in order. In a terminal, SIGHUP reports that the terminal
/// was closed, and the tray continues without it.
std::vector<int> endSignals(bool inTerminal) {
  if (inTerminal || hangUpIsIgnored()) return {SIGTERM, SIGINT};
  return {SIGTERM, SIGINT, SIGHUP};
}

/// The requests to the tray while it ran. A signal that asks it to end takes precedence over a
/// relaunch, in either order. Set on any thread.
struct Requests {
  std::atomic<bool> end = false;
  std::atomic<bool> relaunch = false;
  std::atomic<bool> failed = false;  // a task of a thread has thrown

  [[nodiscard]] bool wantRelaunch() const { return relaunch && !end && !EndSignals::arePending(); }
};

/// Handles failures of tasks while it exists.
class FailureHandler {
 public:
  explicit FailureHandler(std::function<void()> handler) {
    taskFailure::setHandler(std::move(handler));
  }
  ~FailureHandler() { taskFailure::setHandler(nullptr); }
  FailureHandler(const FailureHandler&) = delete;
  FailureHandler& operator=(const FailureHandler&) = delete;
};

/// Runs the main loop and shuts down. Records a requested end as early as possible, because the
/// requester may not wait for the whole shutdown.
Ending runUntilEnd(AppDelegate& delegate, const Runtime& runtime, const Requests& requests,
                   std::optional<EndSignals>& signals, const ServiceManager& manager) {
  const Instant started = runtime.clock.now();
  const auto recordEnd = [&] { recordRequestedEnd(Bundle::main(), runtime.clock.now() - started); };
  const Timer watchdog = manager.feedWatchdog(runtime.mainLoop, runtime.clock);
  runtime.mainLoop.async([&] {
    delegate.applicationDidFinishLaunching();
    if (delegate.exitStatus() == EXIT_SUCCESS) manager.notifyReady();
  });
  runtime.mainLoop.run();
  const int status = requests.failed ? EXIT_FAILURE : delegate.exitStatus();
  const bool relaunches = status == EXIT_SUCCESS && requests.wantRelaunch();
  if (relaunches) {
    manager.notifyReloading();
  } else {
    manager.notifyStopping();
    if (status == EXIT_SUCCESS) recordEnd();
  }
  delegate.applicationWillTerminate();
  runtime.mainLoop.close();
  signals.reset();  // signals read until now are recorded, later ones stay pending
  if (!relaunches || requests.wantRelaunch()) return {.status = status, .relaunch = relaunches};
  manager.notifyStopping();
  recordEnd();
  return {.status = status};
}

/// Determines whether a panel shows the icon. Waits for the session bus.
TrayHost findTrayHost() {
  const auto services = SessionServices::find();
  if (!services.bus) return TrayHost::noBus;
  return services.host ? TrayHost::present : TrayHost::absent;
}

CommandSetup commandSetup(CommandLine::Mode mode) {
  CommandSetup setup{.baseDirectory = Servers::baseDir()};
  switch (mode) {
    case CommandLine::Mode::desktop:
      setup.mode = "desktop";
      setup.findTrayHost = &findTrayHost;
      break;
    case CommandLine::Mode::terminal:
      setup.mode = "terminal";
      break;
    case CommandLine::Mode::headless:
      setup.mode = "headless";
      break;
  }
  return setup;
}

/// Runs the tray until it is asked to end.
Ending runTray(Guardian& guardian, const CommandLine& commandLine, std::string activationToken,
               std::vector<std::string> arguments, const ServiceManager& manager) {
  // The reactor is destroyed before the pool, because its last handlers may submit tasks to the
  // pool.
  MainLoop mainLoop;
  ThreadPool pool;
  Reactor reactor;
  SystemClock clock(reactor);
  SystemProcessLauncher launcher(reactor, guardian);
  const Servers::Store servers(pool, clock);
  const ThreadPoolDrain drain(pool);
  const Runtime runtime{mainLoop, reactor, pool, clock, launcher};
  Requests requests;
  const auto request = [&](std::atomic<bool>& what) {
    what = true;
    mainLoop.quit();
  };
  const FailureHandler handler([&] { request(requests.failed); });
  UpdateSetup updates{.program = updaterProgram(Bundle::main()),
                      .prefix = installationPrefix(Bundle::main()),
                      .version = runningVersion(Bundle::main()),
                      .arguments = std::move(arguments),
                      .relaunch = [&] { request(requests.relaunch); },
                      .random = randomFraction,
                      .settings = UpdateSettings(Config::defaults())};
  const bool inTerminal = commandLine.mode == CommandLine::Mode::terminal;
  const auto end = [&] { request(requests.end); };
  std::optional<EndSignals> signals(std::in_place, reactor, endSignals(inTerminal), end);
  const auto chosen = FrontEnd::make(commandLine.mode, runtime, std::move(activationToken));
  std::optional<UnixSignalWatcher> hangUp;
  if (inTerminal && chosen.endsAtHangUp && !hangUpIsIgnored()) {
    hangUp.emplace(reactor, std::initializer_list<int>{SIGHUP}, [end](int) { end(); });
  }
  const auto delegate = std::make_shared<AppDelegate>(
      runtime, *chosen.desktop, *chosen.dialogs,
      ProcessUpdater::factory(runtime, *chosen.dialogs, std::move(updates)),
      commandSetup(commandLine.mode));
  return runUntilEnd(*delegate, runtime, requests, signals, manager);
}

/// Another tray owns the base directory. Asks it to show itself.
int delegateToRunningTray(const SingleOwnerLock::Taken& taken, const std::string& activationToken,
                          const ServiceManager& manager) {
  if (taken.holder && SingleInstance::requestReopen(*taken.holder, activationToken)) {
    manager.notifyReady();  // a service that ends without it has failed, and would be restarted
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

Ending start(const CommandLine& commandLine, std::string activationToken,
             std::vector<std::string> arguments, const ServiceManager& manager) {
  if (const auto claimed = Servers::claimBaseDir(); !claimed) {
    log("could not start: {}", claimed.error().message);
    return {EXIT_FAILURE};
  }
  auto outcome = SingleOwnerLock::acquire(joinPath(Servers::baseDir(), "tray.lock"));
  if (const auto* taken = std::get_if<SingleOwnerLock::Taken>(&outcome)) {
    EndSignals::block({});  // this process may end at once
    return {delegateToRunningTray(*taken, activationToken, manager)};
  }
  if (const auto* error = std::get_if<Error>(&outcome)) {
    log("could not start: {}", error->message);
    return {EXIT_FAILURE};
  }
  if (rollBackIfUnconfirmed(Bundle::main())) return {.relaunch = true};
  auto guardian = Guardian::start();
  if (!guardian) {
    log("could not start: {}", guardian.error().message);
    return {EXIT_FAILURE};
  }
  try {
    Ending ending =
        runTray(*guardian, commandLine, std::move(activationToken), std::move(arguments), manager);
    if (ending.relaunch) ending.lock = std::get<SingleOwnerLock>(std::move(outcome));
    return ending;
  } catch (const std::exception& error) {  // out of threads, descriptors or memory
    log("could not continue: {}", error.what());
    return {EXIT_FAILURE};
  }
}

/// Executes the installed program with the lock and the pending signals. After a rollback it runs
/// without the lock and the mask, which the previous version may not support. Returns only on
/// failure.
int becomeInstalledProgram(const Ending& ending, char** arguments, const ServiceManager& manager) {
  const std::string executable = Bundle::main().executable().value_or("");
  manager.restoreEnvironment();
  if (ending.lock) {
    ending.lock->keepAcrossExec();
  } else {
    EndSignals::block({});
  }
  restoreDescriptorLimit();
  coreDumps::restore();
  ::execv(executable.c_str(), arguments);
  log("could not restart: {}", systemError(executable, errno).message);
  return EXIT_FAILURE;
}

constexpr int wrongUse = 2;

int refuse(const Error& error) {
  std::cerr << "zephyl-tray: " << error.message << "\nTry 'zephyl-tray --help'.\n";
  return wrongUse;
}

/// Executes the program that implements `zephyl-tray VERB`, which is beside the tray's executable
/// or in <prefix>/libexec/zephyl-tray. Passes the path of the tray in place of the program name.
/// Returns only on failure.
int becomeCommandProgram(std::span<char*> arguments) {
  constexpr auto name = "zephyl-tray-command";
  std::string tray = Bundle::runningExecutable().value_or("");
  const auto directory = parentDirectory(tray);
  auto program = joinPath(directory, name);
  if (!isExecutableFile(program)) {
    program = joinPath(parentDirectory(directory), std::string("libexec/zephyl-tray/") + name);
  }
  arguments.front() = tray.data();
  ::execv(program.c_str(), arguments.data());
  std::cerr << "zephyl-tray: " << systemError(program, errno).message
            << "\nInstall zephyl-tray again.\n";
  return EXIT_FAILURE;
}

}  // namespace
}  // namespace zephyl

int main(int argc, char** argv) {
  using namespace zephyl;
  if (argc < 1) return wrongUse;
  const std::span arguments(argv, static_cast<std::size_t>(argc));
  if (CommandArguments::nameVerb(arguments.subspan(1))) return becomeCommandProgram(arguments);
  establishProcessState();
  coreDumps::disable();
  EndSignals::block(endSignals(/*inTerminal=*/false));
  Bundle::setMain(Bundle(Bundle::runningExecutable()));
  // The token of the program that started this one, used only for the first window.
  std::string activationToken = environmentVariable("XDG_ACTIVATION_TOKEN").value_or("");
  const ServiceManager manager = ServiceManager::fromEnvironment();
  removePrivateEnvironmentVariables();
  const auto commandLine = CommandLine::parse(argc, argv);
  if (!commandLine) return refuse(commandLine.error());
  if (!commandLine->answer.empty()) {
    std::cout << commandLine->answer;
    return EXIT_SUCCESS;
  }
  const bool inTerminal = commandLine->mode == CommandLine::Mode::terminal;
  if (inTerminal) EndSignals::block(endSignals(inTerminal));
  const Ending ending =
      start(*commandLine, std::move(activationToken), {argv + 1, argv + argc}, manager);
  return ending.relaunch ? becomeInstalledProgram(ending, argv, manager) : ending.status;
}
