#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Concurrency/Runtime.hpp"
#include "System/Concurrency/SerialQueue.hpp"
#include "System/Data/LogRing.hpp"
#include "System/Processes/ChildProcess.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"
#include "ZephylTray/Tailnet/TailnetPair.hpp"

namespace zephyl {

struct TailnetAnnouncement;

/// The displayed state of a tailnet: a copy, taken at one moment.
struct TailnetState {
  std::optional<std::string> boundAddress;   ///< the data tunnel's local address, "host:port"
  std::optional<std::string> activeRelay;    ///< the relay that verified the server's control plane
  std::optional<std::string> stalledReason;  ///< set while retries follow the slow schedule
  std::optional<std::string> lastEnrolError;
  std::optional<std::string> unresolvedTarget;
  std::int64_t failureCount = 0;  ///< consecutive failed starts and exits

  bool operator==(const TailnetState&) const = default;
};

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
/// While a pre-authorisation key is stored, it is removed from the children's output.
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
  static constexpr Duration terminationGrace = ChildProcess::terminationGrace;
  static constexpr Duration stalledDelay = std::chrono::minutes(5);

  /// `predecessor`, if not null, is a stopped instance for the same server. No child is started
  /// before its children have ended.
  TailnetProcess(const Runtime& runtime, ServerEntry server,
                 std::shared_ptr<TailnetProcess> predecessor = nullptr);
  ~TailnetProcess();
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
  /// Like `restart`. The client enrols with `preauthKey`, which is stored until the join succeeds.
  void startRedeeming(SecretString preauthKey);

  /// Asks the pair to end like `stop`, without waiting for running tasks of the queue.
  void requestStop();
  /// Waits until the children have ended and kills those that still run at `deadline`. For the
  /// shutdown, after `requestStop`.
  void finishStop(Instant deadline);

  [[nodiscard]] const ServerEntry& server() const { return server_; }
  /// Returns whether both children run.
  [[nodiscard]] bool isRunning() const;
  [[nodiscard]] TailnetState state() const;
  [[nodiscard]] std::vector<std::string> recentLog() const;
  /// Returns the lines of that log after `position`. See `LogRing::since`.
  [[nodiscard]] LogTail logSince(std::uint64_t position) const;
  [[nodiscard]] bool hasLog() const;

 private:
  using SharedPair = std::shared_ptr<TailnetPair>;
  struct Programs {
    std::string tailscaled;
    std::string client;
  };

  /// Values that the client has printed about the server and that the main thread has not handled
  /// yet.
  struct Discoveries {
    std::optional<std::string> address;
    std::optional<std::string> name;
    std::optional<std::string> accent;
    std::optional<std::string> unresolvedTarget;
  };

  /// State that other threads read or write, too.
  struct Visible {
    SharedPair pair;
    TailnetState state;
    LogRing log;
    std::optional<Discoveries> discoveries;  ///< nullopt: no task is pending on the main thread
  };
  /// The progress of the end of the pair.
  struct Ending {
    std::vector<Task> then;          ///< called when the pair has ended
    TailnetPair::Child graceHolder;  ///< the child whose grace has started
  };

  // Runs on the queue:
  void startLocked();
  void launchPair();
  void cancelStarts();
  void endPair(Task then);
  void continueEnding();
  void finishEnding();
  void kill(ChildProcess& child);
  void clearFailures();
  void restartLocked();
  void startLater(Duration delay);
  void prepareDirectories();
  bool launchDaemon(const SharedPair& pair, const Programs& programs);
  void launchClient(const SharedPair& pair, const std::string& program);
  void handleChildExit(const SharedPair& pair, const std::string& name, ExitStatus status);
  void scheduleRetry();
  void appendLog(const SharedPair& pair, const OutputLines& output, const std::string& tag);
  [[nodiscard]] std::string withoutPreauthKey(const std::string& line) const;
  void scrape(const TailnetPair& pair, std::string_view line);
  void handle(TailnetAnnouncement announcement);
  void storeDiscovery(std::optional<std::string> Discoveries::*kind, std::string value);
  void recordDiscoveries();
  void failEnrolment(std::string reason);

  [[nodiscard]] ProcessOptions childOptions(const SharedPair& pair, const std::string& name,
                                            const std::string& tag);
  void attachLogging(ProcessOptions& options, const SharedPair& pair, const std::string& tag);
  [[nodiscard]] std::vector<std::string> clientArguments() const;
  [[nodiscard]] bool hasTarget() const;
  void appendLine(std::string line);
  void logMessage(const std::string& text);
  /// Changes the published state.
  template <typename Change>
  void publish(Change change) {
    const std::scoped_lock lock(published_);
    change();
  }
  /// Run `work` later on the queue or on the main loop, unless this was destroyed by then.
  void onQueue(std::function<void(TailnetProcess&)> work);
  void onMain(std::function<void(TailnetProcess&)> work);
  void reportStateChange();

  const Runtime runtime_;
  const ServerEntry server_;
  mutable SerialQueue queue_;

  bool stopRequested_ = false;
  std::optional<SecretString> pendingPreauthKey_;
  std::uint64_t keyNumber_ = 0;  // the number of keys received
  std::uint64_t attempts_ = 0;   // the number of the newest start, which supersedes older ones
  std::shared_ptr<TailnetProcess> predecessor_;
  Ending ending_;

  mutable std::mutex published_;  // guards visible_
  Visible visible_;
};

}  // namespace zephyl
