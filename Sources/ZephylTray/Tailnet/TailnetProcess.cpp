#include "ZephylTray/Tailnet/TailnetProcess.hpp"

#include <algorithm>
#include <utility>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "ZephylTray/Registry/Servers.hpp"
#include "ZephylTray/Tailnet/TailnetLaunch.hpp"

namespace zephyl {

namespace {

std::chrono::seconds retryDelay(std::int64_t failures) {
  constexpr std::int64_t longest = 60;
  return std::chrono::seconds(std::min(std::int64_t{1} << failures, longest));
}

}  // namespace

TailnetProcess::TailnetProcess(const Runtime& runtime, ServerEntry server,
                               std::shared_ptr<TailnetProcess> predecessor)
    : runtime_(runtime),
      server_(std::move(server)),
      queue_("com.zephyl.tray.tailnet." + server_.id, runtime.pool, runtime.clock),
      output_(published_, preauthKey_,
              {.discovered =
                   [this] {
                     runtime_.mainLoop.async(
                         weakly(this, [](TailnetProcess& self) { self.recordDiscoveries(); }));
                   },
               .enrolmentFailed = [this] { handleFailedEnrolment(); }}),
      children_(runtime.clock, published_,
                [this](Duration delay, Task task) {
                  queue_.after(delay,
                               weakly(this, [task = std::move(task)](TailnetProcess&) { task(); }));
                }),
      predecessor_(std::move(predecessor)) {}

void TailnetProcess::start() {
  queue_.sync([this] {
    stopRequested_ = false;
    published_.change([](TailnetState& state) { state.clearFailures(); });
    startLocked();
  });
  reportStateChange();
}

void TailnetProcess::stop(Task ended) {
  queue_.sync([&] {
    cancelStarts();
    endPair([this, ended = std::move(ended)] {
      if (!ended) return;
      runtime_.mainLoop.async(weakly(this, [ended](TailnetProcess&) { ended(); }));
    });
  });
  reportStateChange();
}

void TailnetProcess::restart() {
  queue_.sync([this] { restartLocked(); });
}

void TailnetProcess::startRedeeming(SecretString preauthKey) {
  queue_.sync([&] {
    preauthKey_.store(std::move(preauthKey));
    restartLocked();
  });
}

void TailnetProcess::requestStop() {
  children_.requestEnd();
  onQueue([](TailnetProcess& self) {
    self.cancelStarts();
    self.endPair(nullptr);
  });
}

void TailnetProcess::finishStop(Instant deadline) {
  const SharedPair pair = queue_.sync([this] {
    cancelStarts();
    children_.requestEnd();
    return children_.pair();
  });
  if (pair) children_.awaitEnd(*pair, deadline);
}

void TailnetProcess::startLocked() {
  if (stopRequested_) return;
  if (const auto pair = children_.pair(); pair && !pair->isEnded()) return;
  endPair([this] { launchPair(); });
}

void TailnetProcess::restartLocked() {
  stopRequested_ = false;
  published_.change([](TailnetState& state) { state.clearFailures(); });
  endPair([this, attempt = ++attempts_] {
    if (attempts_ == attempt) startLater(restartDelay);
  });
}

/// Starts after `delay` unless a later operation supersedes it.
void TailnetProcess::startLater(Duration delay) {
  queue_.after(delay, weakly(this, [attempt = ++attempts_](TailnetProcess& self) {
                 if (self.attempts_ != attempt) return;
                 self.startLocked();
                 self.reportStateChange();
               }));
}

void TailnetProcess::launchPair() {
  if (stopRequested_ || children_.pair()) return;
  const auto launch = TailnetLaunch::choose();
  if (!launch) return;
  if (!server_.isJoined()) {
    return published_.logMessage(
        "no tailnet invite has been redeemed yet; not starting the tailnet");
  }
  for (const auto& obstacle : TailnetLaunch::prepareDirectories(server_)) {
    published_.logMessage(obstacle);
  }
  if (TailnetLaunch::hasTarget(server_)) {
    published_.change([](TailnetState& state) { state.unresolvedTarget.reset(); });
  }
  const auto pair = std::make_shared<TailnetPair>();
  if (!launchDaemon(pair, *launch)) return;
  ++attempts_;
  queue_.after(clientDelay, weakly(this, [pair, launch = *launch](TailnetProcess& self) {
                 self.launchClient(pair, launch);
               }));
}

bool TailnetProcess::launchDaemon(const SharedPair& pair, const TailnetLaunch& launch) {
  const auto& program = TailnetProgram::daemon;
  auto options = launch.daemon(server_);
  connect(options, pair, program);
  auto daemon = runtime_.launcher.launch(std::move(options));
  if (!daemon) {
    published_.logMessage(
        formatText("failed to start {}: {}", program.name, daemon.error().message));
    scheduleRetry();
    return false;
  }
  pair->setDaemon(*daemon);
  children_.setPair(pair);
  return true;
}

void TailnetProcess::launchClient(const SharedPair& pair, const TailnetLaunch& launch) {
  if (stopRequested_ || (pair->isEnded() && !pair->hasFailed())) return;
  const auto& program = TailnetProgram::client;
  if (!pair->daemon()->isRunning()) {
    return published_.logMessage(formatText("{} did not stay up; not starting {}",
                                            TailnetProgram::daemon.name, program.name));
  }
  auto options = launch.client(server_, preauthKey_.stored());
  connect(options, pair, program);
  if (preauthKey_.stored()) pair->setKeyNumber(preauthKey_.number());
  auto client = runtime_.launcher.launch(std::move(options));
  if (!client) {
    published_.logMessage(
        formatText("failed to start {}: {}", program.name, client.error().message));
    pair->markEnded();
    return scheduleRetry();
  }
  pair->setClient(*client);
  reportStateChange();
}

void TailnetProcess::connect(ProcessOptions& options, const SharedPair& pair,
                             const TailnetProgram& program) {
  options.onOutput = weakly(this, [pair = std::weak_ptr(pair), tag = program.tag](
                                      TailnetProcess& self, OutputLines output) {
    const auto shared = std::make_shared<OutputLines>(std::move(output));
    self.onQueue([pair, shared, tag](TailnetProcess& tailnet) {
      tailnet.output_.handle(pair.lock().get(), *shared, tag);
    });
  });
  options.onExit =
      weakly(this, [pair = std::weak_ptr(pair), program](TailnetProcess& self, ExitStatus status) {
        self.onQueue([pair, program, status](TailnetProcess& tailnet) {
          tailnet.handleChildExit(pair.lock(), program, status);
        });
      });
}

void TailnetProcess::cancelStarts() {
  stopRequested_ = true;
  ++attempts_;
}

/// Runs `then` on the queue when the pair has ended, after the tasks of earlier calls.
void TailnetProcess::endPair(Task then) {
  if (then) children_.whenEnded(std::move(then));
  if (predecessor_) {
    return predecessor_->stop(weakly(this, [](TailnetProcess& self) {
      self.onQueue([](TailnetProcess& tailnet) {
        if (std::exchange(tailnet.predecessor_, nullptr)) tailnet.children_.end();
      });
    }));
  }
  published_.change([](TailnetState& state) {
    state.boundAddress.reset();
    state.activeRelay.reset();
  });
  children_.end();
}

void TailnetProcess::handleChildExit(const SharedPair& pair, const TailnetProgram& program,
                                     ExitStatus status) {
  published_.logMessage(status.reason == ExitStatus::Reason::exited
                            ? formatText("{} exited with status {}", program.name, status.status)
                            : formatText("{} terminated", program.name));
  const bool isCurrent = pair && pair == children_.pair();
  if (isCurrent && !pair->isEnded() && !stopRequested_) {
    pair->markFailed();
    endPair(nullptr);
    scheduleRetry();
  } else if (isCurrent) {
    children_.handleExit();
  }
  reportStateChange();
}

void TailnetProcess::handleFailedEnrolment() {
  cancelStarts();
  endPair(nullptr);
  reportStateChange();
}

void TailnetProcess::scheduleRetry() {
  if (stopRequested_) return;
  const auto failures = published_.change([](TailnetState& state) { return ++state.failureCount; });
  if (failures <= maxFailures) {
    const auto delay = retryDelay(failures);
    published_.logMessage(formatText("retrying the tailnet in {}s (attempt {}/{})", delay.count(),
                                     failures, maxFailures));
    return startLater(delay);
  }
  published_.change(
      [](TailnetState& state) { state.stalledReason = "Not connecting — retrying every 5 min"; });
  published_.logMessage(
      formatText("still cannot start the tailnet after {} attempts; trying again in 5m", failures));
  reportStateChange();
  startLater(stalledDelay);
}

void TailnetProcess::onQueue(std::function<void(TailnetProcess&)> work) {
  queue_.async(weakly(this, std::move(work)));
}

void TailnetProcess::recordDiscoveries() {
  const auto found = output_.extractDiscoveries();
  if (found.address) {
    const bool changed = Servers::recordDiscoveredAddress(server_.id, *found.address);
    if (changed && onAddressLearned) onAddressLearned();
  }
  if (found.name) Servers::recordDiscoveredName(server_.id, *found.name);
  if (found.accent) Servers::recordDiscoveredAccent(server_.id, *found.accent);
  if (found.unresolvedTarget && onTargetUnresolved) onTargetUnresolved(*found.unresolvedTarget);
  if (onStateChange) onStateChange();
}

void TailnetProcess::reportStateChange() {
  runtime_.mainLoop.async(weakly(this, [](TailnetProcess& self) {
    if (self.onStateChange) self.onStateChange();
  }));
}

}  // namespace zephyl
