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
/// Idle: no child. `start` launches one: Running, or Idle still when there is no executable or it
/// cannot be launched (`onLaunchFailure`). Running: the child's exit, whatever its cause, leads
/// back to Idle (`onStateChange`), and an exit that nobody asked for, with a status other than
/// zero, also to `onNonZeroExit`. Nothing restarts the agent by itself.
///
/// `stop` asks the child to end and leaves the move to Idle to its exit. `restart` asks the same
/// and launches again once the old child is gone and at least `restartDelay` has passed, so that
/// the port is free; a child that has not gone after `terminationGrace` is killed. A launch frees
/// the agent's port first: the process that listens there is asked to end, so a restart also
/// replaces an agent that somebody else launched.
///
/// An exit belongs to the launch that made the child: one that comes late cannot disturb the
/// next. Lines of earlier runs stay in the log until newer ones push them out.
///
/// Owned by a `shared_ptr`; delayed work and children hold it weakly. All state is touched on the
/// queue "com.zephyl.tray.agent". The operations wait for it and may be called from any thread
/// but that queue. Callbacks are set once, before the first `start`, and come on the main thread.
class AgentProcess : public std::enable_shared_from_this<AgentProcess> {
 public:
  static constexpr std::size_t maxLogLines = LogRing::maxLines;
  static constexpr Duration restartDelay = std::chrono::milliseconds(600);
  static constexpr Duration terminationGrace = std::chrono::seconds(3);

  /// `port` is where every agent that is launched here listens.
  explicit AgentProcess(const Runtime& runtime, std::int64_t port = Config::trayPort());

  /// The agent was started or restarted, or has exited.
  std::function<void()> onStateChange;
  /// The agent exited by itself with a status other than zero; with the log up to then.
  std::function<void(int status, std::vector<std::string> log)> onNonZeroExit;
  /// There is no executable, or it could not be launched; a message for the user.
  std::function<void(std::string message)> onLaunchFailure;

  /// Launches the agent; when it runs already, only reports a state change.
  void start();
  /// Asks the agent to end and drops a restart that is due. Does not wait for the exit.
  void stop();
  void restart();
  /// Waits for the end of a stopped agent until `deadline`, then kills what is left of it.
  void awaitExit(Instant deadline);

  [[nodiscard]] bool isRunning() const;
  /// Whether a child launched here is alive.
  [[nodiscard]] bool isManaged() const;
  /// The newest lines of the agent's output and of the supervisor's own notes, oldest first.
  [[nodiscard]] std::vector<std::string> recentLog() const;
  /// The lines of that log after `position`; see `LogRing::since`.
  [[nodiscard]] LogTail logSince(std::uint64_t position) const;

  /// Adds each line of `text` to the log, later, on the queue. From any thread.
  void appendLog(std::string text);

 private:
  /// One child, from its launch to its exit.
  struct Launch {
    std::uint64_t number = 0;
    std::shared_ptr<ChildProcess> child;
    bool exitRequested = false;
  };

  // On the queue:
  void startLocked();
  void stopLocked();
  void startWhenRestartIsDue();
  void killIfStillRunning(std::uint64_t launch);
  void childExited(std::uint64_t launch, ExitStatus status);
  void append(const OutputLines& output);
  void note(const std::string& text);
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
