#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"
#include "ZephylTray/Agent/AgentSnapshot.hpp"

namespace zephyl {

class MainLoop;

/// Keeps a snapshot of the agent up to date: by a poll every `pollInterval`, and by the agent's
/// event stream.
///
/// Unreachable at first. A poll in which status and folders both succeed makes the agent reachable,
/// the first poll in which either fails makes it unreachable and clears the snapshot. A poll whose
/// activity alone fails keeps the activity of before. Polls may overlap; each is applied whole when
/// it ends. A poll never starts the agent.
///
/// Main thread only, except for the function that `busyQuery` returns. Owned by a `shared_ptr`;
/// requests and timers hold it weakly.
class AgentMonitor : public std::enable_shared_from_this<AgentMonitor> {
 public:
  static constexpr Duration pollInterval = std::chrono::seconds(2);

  /// What the monitor asks of the agent.
  struct Port {
    /// Requests status, folders and activity. Completes later, once, on the main thread.
    std::function<void(std::function<void(Result<AgentPoll>)>)> poll;
    /// Follows the event stream as long as the returned handle lives.
    std::function<std::shared_ptr<void>(std::function<void(Activity)>)> followEvents;
    /// A poll has failed, so another program may own the agent's port by now.
    std::function<void()> forgetPeer;
  };

  /// What changed the snapshot.
  enum class Update {
    poll,      ///< a poll has ended, whatever it found
    activity,  ///< the event stream brought an activity
    progress,  ///< the same, but nothing that the menu shows differs from the activity of before
  };

  /// `mainLoop` and `clock` outlive it.
  AgentMonitor(MainLoop& mainLoop, Clock& clock, Port port)
      : mainLoop_(mainLoop), clock_(clock), port_(std::move(port)) {}

  /// The snapshot has been replaced. Set before the first poll.
  std::function<void(const AgentSnapshot& snapshot, Update update)> onChange;

  /// Polls every `pollInterval` from now on, for as long as this lives.
  void startPolling();
  /// Polls once, now.
  void refresh() { pollOnce({}); }
  /// Polls once; runs `done`, if there is one, after the result has been applied and reported.
  void pollOnce(Task done);

  /// Follows the event stream. Ends the stream that is followed already.
  void startActivityStream();
  void stopActivityStream() { events_.reset(); }

  [[nodiscard]] const AgentSnapshot& snapshot() const { return snapshot_; }
  /// Whether a poll has ended yet. Until then nothing is known about the agent.
  [[nodiscard]] bool hasPolled() const { return polled_; }
  /// Returns a query for whether the agent is busy. The query may be called from any thread and may
  /// outlive the monitor.
  [[nodiscard]] std::function<bool()> busyQuery() const;

 private:
  void apply(Result<AgentPoll> poll);
  void receive(Activity activity);
  void report(Update update);

  MainLoop& mainLoop_;
  Clock& clock_;
  const Port port_;
  AgentSnapshot snapshot_;
  bool polled_ = false;
  const std::shared_ptr<std::atomic<bool>> busy_ = std::make_shared<std::atomic<bool>>(false);
  std::shared_ptr<void> events_;
  Timer pollTimer_;
};

}  // namespace zephyl
