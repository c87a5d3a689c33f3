#include "ZephylTray/Agent/AgentProcess.hpp"

#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Log.hpp"
#include "System/Files/Shell.hpp"
#include "ZephylTray/Agent/AgentLaunch.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {
constexpr auto noExecutable =
    "No Rust agent binary found. Build it with `cargo build --release -p zephyl-agent` (dev "
    "checkout) or reinstall the packaged app.";
}

AgentProcess::AgentProcess(const Runtime& runtime, std::int64_t port)
    : runtime_(runtime),
      port_(port),
      queue_("com.zephyl.tray.agent", runtime.pool, runtime.clock) {}

void AgentProcess::start() {
  queue_.sync([this] { startLocked(); });
  reportStateChange();
}

void AgentProcess::stop() {
  queue_.sync([this] {
    restartPending_ = false;
    stopLocked();
  });
}

void AgentProcess::restart() {
  queue_.sync([this] {
    stopLocked();
    if (process_) {
      queue_.after(terminationGrace, weakly(this, [launch = process_->number](AgentProcess& self) {
                     self.killIfStillRunning(launch);
                   }));
    }
    if (restartPending_) return;
    restartPending_ = true;
    restartDelayPassed_ = false;
    queue_.after(restartDelay, weakly(this, [restart = ++restarts_](AgentProcess& self) {
                   if (self.restarts_ != restart) return;
                   self.restartDelayPassed_ = true;
                   self.startWhenRestartIsDue();
                 }));
  });
}

void AgentProcess::awaitExit(Instant deadline) {
  const auto child = queue_.sync([this] { return process_ ? process_->child : nullptr; });
  if (!child || child->waitForExit(deadline - runtime_.clock.now())) return;
  log("{} ignored SIGTERM; killing it", child->pid());
  child->killGroup();
}

bool AgentProcess::isRunning() const {
  return queue_.sync([this] { return running(); });
}

bool AgentProcess::isManaged() const {
  return queue_.sync([this] { return process_.has_value(); });
}

std::vector<std::string> AgentProcess::recentLog() const {
  return queue_.sync([this] { return recentLog_.lines(); });
}

LogTail AgentProcess::logSince(std::uint64_t position) const {
  return queue_.sync([this, position] { return recentLog_.since(position); });
}

void AgentProcess::appendLog(std::string text) {
  queue_.async(weakly(this, [text = std::move(text)](AgentProcess& self) {
    for (const auto line : splitNonEmpty(text, '\n')) self.recentLog_.append(std::string(line));
  }));
}

void AgentProcess::startLocked() {
  if (running()) return;
  restartPending_ = false;
  const auto launch = AgentLaunch::choose(Servers::enabled(), currentEnvironment(), port_);
  if (!launch) {
    logMessage(noExecutable);
    reportLaunchFailure(noExecutable);
    return;
  }
  process_.emplace(Launch{.number = ++launches_});
  auto child = runtime_.launcher.launch(launchOptions(*launch));
  if (!child) {
    process_.reset();
    logMessage("failed to start agent: " + child.error().message);
    reportLaunchFailure(child.error().message);
    return;
  }
  process_->child = *child;
}

ProcessOptions AgentProcess::launchOptions(const AgentLaunch& launch) {
  return {.executable = loginShell(),
          .arguments = {"-c", launch.shellCommand(port_)},
          .environment = launch.environment,
          .onOutput = weakly(this,
                             [](AgentProcess& self, OutputLines output) {
                               auto shared = std::make_shared<OutputLines>(std::move(output));
                               self.queue_.async(weakly(&self, [shared](AgentProcess& agent) {
                                 agent.append(*shared);
                               }));
                             }),
          .onExit = weakly(this, [number = launches_](AgentProcess& self, ExitStatus status) {
            self.queue_.async(weakly(&self, [number, status](AgentProcess& agent) {
              agent.childExited(number, status);
            }));
          })};
}

void AgentProcess::stopLocked() {
  if (!running()) return;
  process_->exitRequested = true;
  process_->child->terminate();
}

void AgentProcess::startWhenRestartIsDue() {
  if (!restartPending_ || !restartDelayPassed_ || process_) return;
  startLocked();
  reportStateChange();
}

void AgentProcess::killIfStillRunning(std::uint64_t launch) {
  if (!process_ || process_->number != launch || !running()) return;
  logMessage(formatText("{} ignored SIGTERM; killing it", process_->child->pid()));
  process_->child->killGroup();
}

void AgentProcess::childExited(std::uint64_t launch, ExitStatus status) {
  const bool current = process_ && process_->number == launch;
  const bool unexpected = current && !process_->exitRequested;
  if (current) process_.reset();
  log("agent {} {}",
      status.reason == ExitStatus::Reason::exited ? "exited with status" : "ended by signal",
      status.status);
  reportStateChange();
  if (unexpected && status.isFailure()) {
    runtime_.mainLoop.async(
        weakly(this, [status = status.status, lines = recentLog_.lines()](AgentProcess& self) {
          if (self.onNonZeroExit) self.onNonZeroExit(status, lines);
        }));
  }
  startWhenRestartIsDue();
}

void AgentProcess::append(const OutputLines& output) {
  for (const auto& line : output.lines()) recentLog_.append(line);
}

void AgentProcess::logMessage(const std::string& text) {
  logLine(text);
  recentLog_.append("[tray] " + text);
}

bool AgentProcess::running() const {
  return process_ && process_->child && process_->child->isRunning();
}

void AgentProcess::reportStateChange() {
  runtime_.mainLoop.async(weakly(this, [](AgentProcess& self) {
    if (self.onStateChange) self.onStateChange();
  }));
}

void AgentProcess::reportLaunchFailure(std::string message) {
  runtime_.mainLoop.async(weakly(this, [message = std::move(message)](AgentProcess& self) {
    if (self.onLaunchFailure) self.onLaunchFailure(message);
  }));
}

}  // namespace zephyl
