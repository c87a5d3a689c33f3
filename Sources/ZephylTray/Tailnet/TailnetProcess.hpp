#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "System/Concurrency/Runtime.hpp"
#include "System/Concurrency/SerialQueue.hpp"
#include "System/Data/LogRing.hpp"
#include "System/Processes/ChildProcess.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"
#include "ZephylTray/Tailnet/PreauthKey.hpp"
#include "ZephylTray/Tailnet/PublishedTailnet.hpp"
#include "ZephylTray/Tailnet/TailnetChildren.hpp"
#include "ZephylTray/Tailnet/TailnetOutput.hpp"

namespace zephyl {

struct TailnetLaunch;
struct TailnetProgram;

/// Keeps one server's private network running: `tailscaled`, the overlay daemon, and
/// `zephyl-tailnet`, which joins the server's network through it and gives the agent access to it.
///
///     Idle        No children and no pending start: initially, after `stop`, after a failed
///                 enrolment, or if a start finds a program missing or no invite redeemed.
///     Ending      Children that were asked to end still run. Then Idle, Restarting or Starting,
///                 as later operations requested.
///     Restarting  No children. After `restartDelay`: Starting.
///     Starting    The daemon runs. After `clientDelay` the client is launched: Running.
///     Running     Both run. "data tunnel on" makes the network usable and clears earlier failures.
///     Failed      A child ended by itself or could not be launched. The other one is ended, too (a
///                 daemon without a client by the next start). Retries after 2, 4, 8, 16, 32, 60 s
///                 and then every 5 min (stalled): Starting.
///
/// In every state, `stop` leads to Idle, `restart` and `startRedeeming` lead to Restarting, and
/// `start` leads to Starting at once, unless a pair is starting or running. If children run, the
/// state is Ending in between. Each child has `terminationGrace` to end and is then killed: the
/// client from the request on, the daemon from the end of the client on.
///
/// A pair of children counts as one failure, whichever child ends first. The exit and the output of
/// a child that was asked to end, or of an earlier pair, are logged and have no other effect. A
/// delayed launch or a retry has no effect if a later operation has superseded it.
///
/// The server is a copy made at construction. Later changes of the registry reach the children only
/// through a new instance. Owned by a `shared_ptr`. Delayed work and children hold it weakly. All
/// state is changed on the queue "com.zephyl.tray.tailnet.<server id>". Readers get published
/// copies and never wait for the queue. No operation waits for a child except `finishStop`.
/// Callbacks are called on the main thread.
class TailnetProcess : public std::enable_shared_from_this<TailnetProcess> {
 public:
  static constexpr std::size_t maxLogLines = LogRing::maxLines;
  static constexpr std::int64_t maxFailures = 6;
  static constexpr Duration clientDelay = std::chrono::seconds(1);
  static constexpr Duration restartDelay = std::chrono::milliseconds(800);
  static constexpr Duration terminationGrace = TailnetChildren::grace;
  static constexpr Duration stalledDelay = std::chrono::minutes(5);

  /// `predecessor`, if not null, is a stopped instance for the same server. No child is started
  /// before its children have ended.
  TailnetProcess(const Runtime& runtime, ServerEntry server,
                 std::shared_ptr<TailnetProcess> predecessor = nullptr);
  TailnetProcess(const TailnetProcess&) = delete;
  TailnetProcess& operator=(const TailnetProcess&) = delete;

  /// Called when the displayed state has changed.
  std::function<void()> onStateChange;
  /// Called when the server's stored address has changed.
  std::function<void()> onAddressLearned;
  /// Called when the client could not resolve the server's target.
  std::function<void(std::string target)> onTargetUnresolved;

  /// Starts the pair unless it runs. Clears earlier failures.
  void start();
  /// Asks the pair to end. Calls `ended` on the main thread when its children have ended, or soon
  /// if there are none, unless the instance is destroyed before.
  void stop(Task ended = nullptr);
  /// Ends the pair and starts it again `restartDelay` after its end.
  void restart();
  /// Like `restart`. The client enrols with `preauthKey`, which is stored until the join succeeds
  /// and is removed from the children's output until then.
  void startRedeeming(SecretString preauthKey);

  /// Asks the pair to end like `stop`, without waiting for running tasks of the queue.
  void requestStop();
  /// Waits until the children have ended and kills those that still run at `deadline`. For the
  /// shutdown, after `requestStop`.
  void finishStop(Instant deadline);

  [[nodiscard]] const ServerEntry& server() const { return server_; }
  /// Returns whether both children run.
  [[nodiscard]] bool isRunning() const { return children_.isRunning(); }
  [[nodiscard]] TailnetState state() const { return published_.state(); }
  [[nodiscard]] std::vector<std::string> recentLog() const { return published_.recentLog(); }
  /// Returns the lines of that log after `position`. See `LogRing::since`.
  [[nodiscard]] LogTail logSince(std::uint64_t position) const {
    return published_.logSince(position);
  }
  [[nodiscard]] bool hasLog() const { return published_.hasLog(); }

 private:
  using SharedPair = TailnetChildren::SharedPair;

  // Runs on the queue:
  void startLocked();
  void restartLocked();
  void startLater(Duration delay);
  void cancelStarts();
  void endPair(Task then);
  void launchPair();
  bool launchDaemon(const SharedPair& pair, const TailnetLaunch& launch);
  void launchClient(const SharedPair& pair, const TailnetLaunch& launch);
  void handleChildExit(const SharedPair& pair, const TailnetProgram& program, ExitStatus status);
  void handleFailedEnrolment();
  void scheduleRetry();

  /// Adds the callbacks of a child.
  void connect(ProcessOptions& options, const SharedPair& pair, const TailnetProgram& program);
  /// Runs `work` later on the queue, unless this was destroyed by then.
  void onQueue(std::function<void(TailnetProcess&)> work);
  /// Runs on the main thread, where the registry is changed.
  void recordDiscoveries();
  void reportStateChange();

  const Runtime runtime_;
  const ServerEntry server_;
  mutable SerialQueue queue_;
  PublishedTailnet published_;

  // Used on the queue:
  bool stopRequested_ = false;
  std::uint64_t attempts_ = 0;  // the number of the newest start, which supersedes older ones
  PreauthKey preauthKey_;
  TailnetOutput output_;
  TailnetChildren children_;
  std::shared_ptr<TailnetProcess> predecessor_;  // until its children have ended
};

}  // namespace zephyl
