#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "System/Concurrency/Runtime.hpp"
#include "System/Concurrency/SerialQueue.hpp"
#include "System/Data/LogRing.hpp"
#include "System/Processes/ChildProcess.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {

struct AgentLaunch;

/// Launches and supervises the local agent.
///
/// States: Idle without a child, Running with one. `start` launches a child. It stays Idle if there
/// is no executable or the launch fails (`onLaunchFailure`). When the child exits, for whatever
/// cause, the state becomes Idle (`onStateChange`). If the exit was not requested and its status is
/// not zero, `onNonZeroExit` is called, too. The agent is never restarted automatically.
///
/// `stop` asks the child to end. The state becomes Idle when it exits. `restart` asks it to end and
/// launches again when the old child has exited and at least `restartDelay` has passed, so that the
/// port is free. A child that has not exited after `terminationGrace` is killed. Each launch first
/// ends the process that listens on the agent's port, so a restart also replaces an agent that was
/// launched elsewhere.
///
/// An exit is assigned to the launch that created the child, so a late exit does not affect the
/// next child. Lines of earlier runs stay in the log until newer ones displace them.
///
/// Owned by a `shared_ptr`. Delayed work and children hold it weakly. All state belongs to the
/// queue "com.zephyl.tray.agent". The operations wait for that queue and are callable from any
/// thread but the queue. Callbacks must be set before the first `start` and are called on the main
/// thread.
class AgentProcess : public std::enable_shared_from_this<AgentProcess> {
 public:
  static constexpr std::size_t maxLogLines = LogRing::maxLines;
  static constexpr Duration restartDelay = std::chrono::milliseconds(600);
  static constexpr Duration terminationGrace = std::chrono::seconds(3);

  /// `port` is the port of every agent that is launched here.
  explicit AgentProcess(const Runtime& runtime, std::int64_t port = Config::trayPort());

  /// Called when the agent was started or restarted, or has exited.
  std::function<void()> onStateChange;
  /// Called when the agent exited without a request and with a status other than zero. `log`
  /// contains the log until then.
  std::function<void(int status, std::vector<std::string> log)> onNonZeroExit;
  /// Called with a message for the user if there is no executable or the launch failed.
  std::function<void(std::string message)> onLaunchFailure;

  /// Launches the agent. If it is running, only reports a state change.
  void start();
  /// Asks the agent to end and cancels a pending restart. Does not wait for the exit.
  void stop();
  void restart();
  /// Waits until `deadline` for a stopped agent to exit, then kills its process group.
  void awaitExit(Instant deadline);

  [[nodiscard]] bool isRunning() const;
  /// Returns whether a child that was launched here has not exited yet.
  [[nodiscard]] bool isManaged() const;
  /// Returns the newest lines of the agent's output and of the supervisor's own messages, oldest
  /// first.
  [[nodiscard]] std::vector<std::string> recentLog() const;
  /// Returns the lines of that log after `position`. See `LogRing::since`.
  [[nodiscard]] LogTail logSince(std::uint64_t position) const;

  /// Adds each line of `text` to the log, later, on the queue. Callable from any thread.
  void appendLog(std::string text);

 private:
  /// One child, from its launch to its exit.
  struct Launch {
    std::uint64_t number = 0;
    std::shared_ptr<ChildProcess> child;
    bool exitRequested = false;
  };

  // Runs on the queue:
  void startLocked();
  void stopLocked();
  void startWhenRestartIsDue();
  void killIfStillRunning(std::uint64_t launch);
  void childExited(std::uint64_t launch, ExitStatus status);
  void append(const OutputLines& output);
  void logMessage(const std::string& text);
  [[nodiscard]] bool running() const;

  [[nodiscard]] ProcessOptions launchOptions(const AgentLaunch& launch);
  void reportStateChange();
  void reportLaunchFailure(std::string message);

  Runtime runtime_;
  const std::int64_t port_;
  mutable SerialQueue queue_;

  LogRing recentLog_;
  std::optional<Launch> process_;
  std::uint64_t launches_ = 0;
  bool restartPending_ = false;
  bool restartDelayPassed_ = false;
  std::uint64_t restarts_ = 0;
};

}  // namespace zephyl
