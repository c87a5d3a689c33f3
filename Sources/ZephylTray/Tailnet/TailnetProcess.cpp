#include "ZephylTray/Tailnet/TailnetProcess.hpp"

#include <algorithm>
#include <utility>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Secret.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

constexpr auto daemonName = "tailscaled";
constexpr auto clientName = "zephyl-tailnet";
constexpr auto daemonTag = "tailscaled";
constexpr auto clientTag = "tailnet";
constexpr std::size_t maxSocketPathBytes = 104;

std::string loopback(std::int64_t port) {
  return formatText("127.0.0.1:{}", port);
}

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
      predecessor_(std::move(predecessor)) {}

TailnetProcess::~TailnetProcess() = default;

void TailnetProcess::start() {
  queue_.sync([this] {
    stopRequested_ = false;
    clearFailures();
    startLocked();
  });
  reportStateChange();
}

void TailnetProcess::stop(Task ended) {
  queue_.sync([&] {
    cancelStarts();
    endPair([this, ended = std::move(ended)] {
      if (ended) onMain([ended](TailnetProcess&) { ended(); });
    });
  });
  reportStateChange();
}

void TailnetProcess::restart() {
  queue_.sync([this] { restartLocked(); });
}

void TailnetProcess::startRedeeming(SecretString preauthKey) {
  queue_.sync([&] {
    pendingPreauthKey_ = std::move(preauthKey);
    ++keyNumber_;
    restartLocked();
  });
}

void TailnetProcess::requestStop() {
  SharedPair pair;
  {
    const std::scoped_lock lock(published_);
    pair = visible_.pair;
  }
  if (pair) pair->requestEnd();
  onQueue([](TailnetProcess& self) {
    self.cancelStarts();
    self.endPair(nullptr);
  });
}

void TailnetProcess::finishStop(Instant deadline) {
  const SharedPair pair = queue_.sync([this] {
    cancelStarts();
    if (visible_.pair) visible_.pair->requestEnd();
    return visible_.pair;
  });
  if (!pair) return;
  for (const auto& child : {pair->client(), pair->daemon()}) {
    if (child && !child->waitForExit(deadline - runtime_.clock.now())) kill(*child);
  }
}

bool TailnetProcess::isRunning() const {
  const std::scoped_lock lock(published_);
  return visible_.pair && visible_.pair->isRunning();
}

TailnetState TailnetProcess::state() const {
  const std::scoped_lock lock(published_);
  return visible_.state;
}

std::vector<std::string> TailnetProcess::recentLog() const {
  const std::scoped_lock lock(published_);
  return visible_.log.lines();
}

LogTail TailnetProcess::logSince(std::uint64_t position) const {
  const std::scoped_lock lock(published_);
  return visible_.log.since(position);
}

bool TailnetProcess::hasLog() const {
  const std::scoped_lock lock(published_);
  return !visible_.log.empty();
}

void TailnetProcess::startLocked() {
  if (stopRequested_ || (visible_.pair && !visible_.pair->isEnded())) return;
  endPair([this] { launchPair(); });
}

void TailnetProcess::launchPair() {
  if (stopRequested_ || visible_.pair) return;
  const auto tailscaled = Config::tailnetBinary(daemonName);
  const auto client = Config::tailnetBinary(clientName);
  if (!tailscaled || !client) return;
  if (!server_.isJoined()) {
    logMessage("no tailnet invite has been redeemed yet; not starting the tailnet");
    return;
  }
  prepareDirectories();
  if (hasTarget()) publish([this] { visible_.state.unresolvedTarget.reset(); });
  const auto pair = std::make_shared<TailnetPair>();
  if (!launchDaemon(pair, {*tailscaled, *client})) return;
  ++attempts_;
  queue_.after(clientDelay, weakly(this, [pair, program = *client](TailnetProcess& self) {
                 self.launchClient(pair, program);
               }));
}

void TailnetProcess::restartLocked() {
  stopRequested_ = false;
  clearFailures();
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

void TailnetProcess::prepareDirectories() {
  if (const auto made = createDirectories(Servers::tailnetStateDir(server_.id)); !made) {
    logMessage("could not create tailnet state dir: " + made.error().message);
  }
  const std::string socket = Servers::controlSocketPath(server_.id);
  if (const auto made = createDirectories(parentDirectory(socket)); !made) {
    logMessage("could not create socket dir: " + made.error().message);
  }
  (void)removePath(socket);
  if (socket.size() >= maxSocketPathBytes) {
    logMessage(
        formatText("socket path is {} bytes; macOS caps it at {}. tailscaled will fail to bind: {}",
                   socket.size(), maxSocketPathBytes, socket));
  }
}

bool TailnetProcess::launchDaemon(const SharedPair& pair, const Programs& programs) {
  auto options = childOptions(pair, daemonName, daemonTag);
  options.executable = programs.tailscaled;
  options.arguments = {"--tun=userspace-networking", "--port=0",
                       "--socks5-server=" + loopback(server_.ports.socks),
                       "--statedir=" + Servers::tailnetStateDir(server_.id),
                       "--socket=" + Servers::controlSocketPath(server_.id)};
  auto tailscaled = runtime_.launcher.launch(std::move(options));
  if (!tailscaled) {
    logMessage(formatText("failed to start {}: {}", daemonName, tailscaled.error().message));
    scheduleRetry();
    return false;
  }
  pair->setDaemon(*tailscaled);
  publish([&] { visible_.pair = pair; });
  return true;
}

void TailnetProcess::launchClient(const SharedPair& pair, const std::string& program) {
  if (stopRequested_ || (pair->isEnded() && !pair->hasFailed())) return;
  if (!pair->daemon()->isRunning()) {
    logMessage(formatText("{} did not stay up; not starting {}", daemonName, clientName));
    return;
  }
  auto options = childOptions(pair, clientName, clientTag);
  options.executable = program;
  options.arguments = clientArguments();
  options.environment["ZEPHYL_TAILSCALED_SOCKET"] = Servers::controlSocketPath(server_.id);
  if (pendingPreauthKey_) {
    options.environment["ZEPHYL_PREAUTH_KEY"] = *pendingPreauthKey_;
    pair->setKeyNumber(keyNumber_);
  }
  auto client = runtime_.launcher.launch(std::move(options));
  if (!client) {
    logMessage(formatText("failed to start {}: {}", clientName, client.error().message));
    pair->markEnded();
    scheduleRetry();
    return;
  }
  pair->setClient(*client);
  reportStateChange();
}

std::vector<std::string> TailnetProcess::clientArguments() const {
  std::vector<std::string> arguments{"--fingerprint",     *server_.tailnetFingerprint,
                                     "--socks5",          loopback(server_.ports.socks),
                                     "--state-dir",       Servers::tailnetStateDir(server_.id),
                                     "--shim-listen",     loopback(server_.ports.shim),
                                     "--tunnel-listen",   server_.ports.tunnelHost + ":80",
                                     "--tunnel-fallback", server_.ports.tunnelFallbackAddr()};
  if (hasTarget()) arguments.insert(arguments.end(), {"--target", *server_.address});
  return arguments;
}

bool TailnetProcess::hasTarget() const {
  return !isBlank(server_.address.value_or(""));
}

ProcessOptions TailnetProcess::childOptions(const SharedPair& pair, const std::string& name,
                                            const std::string& tag) {
  ProcessOptions options{.environment = currentEnvironment()};
  attachLogging(options, pair, tag);
  options.onExit =
      weakly(this, [pair = std::weak_ptr(pair), name](TailnetProcess& self, ExitStatus status) {
        self.onQueue([pair, name, status](TailnetProcess& tailnet) {
          tailnet.handleChildExit(pair.lock(), name, status);
        });
      });
  return options;
}

void TailnetProcess::attachLogging(ProcessOptions& options, const SharedPair& pair,
                                   const std::string& tag) {
  options.onOutput =
      weakly(this, [pair = std::weak_ptr(pair), tag](TailnetProcess& self, OutputLines output) {
        const auto shared = std::make_shared<OutputLines>(std::move(output));
        self.onQueue([pair, shared, tag](TailnetProcess& tailnet) {
          tailnet.appendLog(pair.lock(), *shared, tag);
        });
      });
}

void TailnetProcess::cancelStarts() {
  stopRequested_ = true;
  ++attempts_;
}

/// Runs `then` on the queue when the pair has ended, after the tasks of earlier calls.
void TailnetProcess::endPair(Task then) {
  if (then) ending_.then.push_back(std::move(then));
  if (predecessor_) {
    predecessor_->stop(weakly(this, [](TailnetProcess& self) {
      self.onQueue([](TailnetProcess& tailnet) {
        if (std::exchange(tailnet.predecessor_, nullptr)) tailnet.finishEnding();
      });
    }));
    return;
  }
  if (visible_.pair) visible_.pair->requestEnd();
  publish([this] {
    visible_.state.boundAddress.reset();
    visible_.state.activeRelay.reset();
  });
  continueEnding();
}

/// Starts the grace of the next child that still runs. Called after each exit of a child, too.
void TailnetProcess::continueEnding() {
  const auto child = visible_.pair ? visible_.pair->nextToEnd() : nullptr;
  if (!child) return finishEnding();
  if (std::exchange(ending_.graceHolder, child) == child) return;
  queue_.after(terminationGrace, weakly(this, [weak = std::weak_ptr(child)](TailnetProcess& self) {
                 const auto late = weak.lock();
                 if (late && late->isRunning()) self.kill(*late);
               }));
}

void TailnetProcess::finishEnding() {
  ending_.graceHolder.reset();
  publish([this] { visible_.pair.reset(); });
  for (const auto& task : std::exchange(ending_.then, {})) task();
}

void TailnetProcess::kill(ChildProcess& child) {
  logMessage(formatText("{} ignored SIGTERM; killing it", child.pid()));
  child.killGroup();
}

void TailnetProcess::handleChildExit(const SharedPair& pair, const std::string& name,
                                     ExitStatus status) {
  logMessage(status.reason == ExitStatus::Reason::exited
                 ? formatText("{} exited with status {}", name, status.status)
                 : formatText("{} terminated", name));
  const bool isCurrent = pair && pair == visible_.pair;
  if (isCurrent && !pair->isEnded() && !stopRequested_) {
    pair->markFailed();
    endPair(nullptr);
    scheduleRetry();
  } else if (isCurrent && ending_.graceHolder) {
    continueEnding();
  }
  reportStateChange();
}

void TailnetProcess::scheduleRetry() {
  if (stopRequested_) return;
  publish([this] { ++visible_.state.failureCount; });
  const auto failures = visible_.state.failureCount;
  Duration delay = stalledDelay;
  if (failures <= maxFailures) {
    const auto seconds = retryDelay(failures);
    logMessage(formatText("retrying the tailnet in {}s (attempt {}/{})", seconds.count(), failures,
                          maxFailures));
    delay = seconds;
  } else {
    publish([this] { visible_.state.stalledReason = "Not connecting — retrying every 5 min"; });
    logMessage(formatText("still cannot start the tailnet after {} attempts; trying again in 5m",
                          failures));
    reportStateChange();
  }
  startLater(delay);
}

void TailnetProcess::clearFailures() {
  publish([this] {
    visible_.state.failureCount = 0;
    visible_.state.stalledReason.reset();
  });
}

void TailnetProcess::appendLine(std::string line) {
  publish([&] { visible_.log.append(std::move(line)); });
}

void TailnetProcess::logMessage(const std::string& text) {
  logLine(text);
  appendLine("[tray] " + text);
}

void TailnetProcess::onQueue(std::function<void(TailnetProcess&)> work) {
  queue_.async(weakly(this, std::move(work)));
}

void TailnetProcess::onMain(std::function<void(TailnetProcess&)> work) {
  runtime_.mainLoop.async(weakly(this, std::move(work)));
}

void TailnetProcess::reportStateChange() {
  onMain([](TailnetProcess& self) {
    if (self.onStateChange) self.onStateChange();
  });
}

}  // namespace zephyl
