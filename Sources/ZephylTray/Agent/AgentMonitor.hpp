#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"
#include "ZephylTray/Agent/AgentSnapshot.hpp"

namespace zephyl {

class MainLoop;

/// Keeps a snapshot of the agent up to date, by a poll every `pollInterval` and by the agent's
/// event stream.
///
/// The agent is unreachable at first. A poll in which status and folders both succeed makes it
/// reachable. The first poll in which either fails makes it unreachable and clears the snapshot. If
/// only the activity of a poll fails, the previous activity is kept. So is one that the event
/// stream has reported since the poll began, because it is newer. Polls may overlap. Each is
/// applied as a whole when it ends. A poll never starts the agent.
///
/// Main thread only, except for the function that `busyQuery` returns. Owned by a `shared_ptr`.
/// Requests and timers hold it weakly.
class AgentMonitor : public std::enable_shared_from_this<AgentMonitor> {
 public:
  static constexpr Duration pollInterval = std::chrono::seconds(2);

  /// The requests to the agent.
  struct Port {
    /// Requests status, folders and activity. Calls its completion once, later, on the main thread.
    std::function<void(std::function<void(Result<AgentPoll>)>)> poll;
    /// Follows the event stream until the returned handle is destroyed.
    std::function<std::shared_ptr<void>(std::function<void(Activity)>)> followEvents;
    /// Called when a poll has failed, because another program may have taken the agent's port.
    std::function<void()> forgetPeer;
  };

  /// The cause of a change of the snapshot.
  enum class Update {
    poll,      ///< a poll has ended, successfully or not
    activity,  ///< the event stream reported an activity
    progress,  ///< an activity that does not change the menu
  };

  /// `mainLoop` and `clock` must outlive it.
  AgentMonitor(MainLoop& mainLoop, Clock& clock, Port port)
      : mainLoop_(mainLoop), clock_(clock), port_(std::move(port)) {}

  /// Called when the snapshot was replaced. Must be set before the first poll.
  std::function<void(const AgentSnapshot& snapshot, Update update)> onChange;

  /// Polls every `pollInterval` from now on, until this is destroyed.
  void startPolling();
  /// Polls once, now.
  void refresh() { pollOnce({}); }
  /// Polls once. Calls `done`, if set, after the result was applied and reported.
  void pollOnce(Task done);

  /// Follows the event stream. Ends the current stream, if there is one.
  void startActivityStream();
  void stopActivityStream() { events_.reset(); }

  [[nodiscard]] const AgentSnapshot& snapshot() const { return snapshot_; }
  /// Returns whether a poll has ended. Until then nothing is known about the agent.
  [[nodiscard]] bool hasPolled() const { return polled_; }
  /// Returns a query for whether the agent is busy. The query is callable from any thread and may
  /// outlive the monitor.
  [[nodiscard]] std::function<bool()> busyQuery() const;

 private:
  void apply(Result<AgentPoll> poll, bool activityIsCurrent);
  void receive(Activity activity);
  void report(Update update);

  MainLoop& mainLoop_;
  Clock& clock_;
  const Port port_;
  AgentSnapshot snapshot_;
  bool polled_ = false;
  std::uint64_t eventCount_ = 0;
  const std::shared_ptr<std::atomic<bool>> busy_ = std::make_shared<std::atomic<bool>>(false);
  std::shared_ptr<void> events_;
  Timer pollTimer_;
};

}  // namespace zephyl
