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

/// What a tailnet shows of itself: a copy, taken at one moment.
struct TailnetState {
  std::optional<std::string> boundAddress;   ///< the data tunnel's local address, "host:port"
  std::optional<std::string> activeRelay;    ///< the control plane that the server was verified by
  std::optional<std::string> stalledReason;  ///< retries have gone over to the slow schedule
  std::optional<std::string> lastEnrolError;
  std::optional<std::string> unresolvedTarget;
  std::int64_t failureCount = 0;  ///< failed starts and exits in a row

  bool operator==(const TailnetState&) const = default;
};

/// Keeps one server's private network up: `tailscaled`, the overlay daemon, and `zephyl-tailnet`,
/// which joins the server's network through it and offers the agent a way in.
///
///     Idle        no children, and no start is due: at first, after `stop`, after a failed
///                 enrolment, and when a start finds a program missing or no invite redeemed.
///     Ending      children that were asked to end still run; then Idle, Restarting or Starting,
///                 whichever the operations since then ask for.
///     Restarting  no children; after `restartDelay`: Starting.
///     Starting    the daemon runs; after `clientDelay` the client is launched: Running.
///     Running     both run. "data tunnel on" makes it usable and forgets earlier failures.
///     Failed      a child ended by itself, or could not be launched; the other one is ended too (a
///                 daemon without a client, by the next start). A retry is due, after 2, 4, 8, 16,
///                 32, 60 s and then every 5 min (stalled): Starting.
///
/// In every state `stop` leads to Idle, `restart` and `startRedeeming` lead to Restarting, and
/// `start` leads to Starting at once, but leaves a pair alone that is starting or running. Where
/// children run, each of these passes through Ending. There a child has `terminationGrace` to end:
/// the client from the request on, the daemon from the end of the client on; then it is killed.
///
/// A pair of children fails once, whichever ends first. The exit and the output of a child that was
/// asked to end, or of an earlier pair, are logged and change nothing else. Neither does a delayed
/// launch or a retry that a later operation has overtaken.
///
/// As long as a pre-authorisation key is stored, it is removed from the children's output.
///
/// The server is a copy made at construction: later changes of the registry reach the children
/// through a new instance only. Owned by a `shared_ptr`; delayed work and children hold it weakly.
/// All state is changed on the queue "com.zephyl.tray.tailnet.<server id>". What is read from
/// outside is a published copy, so a reader never waits for the queue. No operation waits for a
/// child except `finishStop`. Callbacks run on the main thread.
class TailnetProcess : public std::enable_shared_from_this<TailnetProcess> {
 public:
  static constexpr std::size_t maxLogLines = LogRing::maxLines;
  static constexpr std::int64_t maxFailures = 6;
  static constexpr Duration clientDelay = std::chrono::seconds(1);
  static constexpr Duration restartDelay = std::chrono::milliseconds(800);
  static constexpr Duration terminationGrace = ChildProcess::terminationGrace;
  static constexpr Duration stalledDelay = std::chrono::minutes(5);

  /// `predecessor`, if there is one, is an earlier instance for the same server that has been
  /// stopped: no child is started before those of the predecessor have ended.
  TailnetProcess(const Runtime& runtime, ServerEntry server,
                 std::shared_ptr<TailnetProcess> predecessor = nullptr);
  ~TailnetProcess();
  TailnetProcess(const TailnetProcess&) = delete;
  TailnetProcess& operator=(const TailnetProcess&) = delete;

  /// Something that is shown has changed.
  std::function<void()> onStateChange;
  /// The server's stored address has changed.
  std::function<void()> onAddressLearned;
  /// The client could not resolve the server's target.
  std::function<void(std::string target)> onTargetUnresolved;

  /// Starts the pair unless it runs; forgets earlier failures.
  void start();
  /// Asks the pair to end. Calls `ended` on the main thread when its children have ended, at once
  /// if there are none; not if the instance is destroyed before.
  void stop(Task ended = nullptr);
  /// Ends the pair and starts it again, `restartDelay` after its end.
  void restart();
  /// Like `restart`; the client enrols with `preauthKey`, which is stored until the join succeeds.
  void startRedeeming(SecretString preauthKey);

  /// Asks the pair to end like `stop`, without waiting for work that is under way on the queue.
  void requestStop();
  /// Waits until the children have ended, and kills those that still run at `deadline`. For the
  /// shutdown, after `requestStop`.
  void finishStop(Instant deadline);

  [[nodiscard]] const ServerEntry& server() const { return server_; }
  /// Both children run.
  [[nodiscard]] bool isRunning() const;
  [[nodiscard]] TailnetState state() const;
  [[nodiscard]] std::vector<std::string> recentLog() const;
  /// The lines of that log after `position`; see `LogRing::since`.
  [[nodiscard]] LogTail logSince(std::uint64_t position) const;
  [[nodiscard]] bool hasLog() const;

 private:
  using SharedPair = std::shared_ptr<TailnetPair>;
  struct Programs {
    std::string tailscaled;
    std::string client;
  };

  /// What the client has printed about the server and the main thread has not handled yet.
  struct Discoveries {
    std::optional<std::string> address;
    std::optional<std::string> name;
    std::optional<std::string> accent;
    std::optional<std::string> unresolvedTarget;
  };

  /// What other threads than the queue's read or write, too.
  struct Visible {
    SharedPair pair;
    TailnetState state;
    LogRing log;
    std::optional<Discoveries> discoveries;  ///< nullopt: the main thread has nothing to handle
  };
  /// How far the end of the pair has come.
  struct Ending {
    std::vector<Task> then;          ///< runs when the pair has ended
    TailnetPair::Child graceHolder;  ///< the child whose grace runs
  };

  // On the queue:
  void startLocked();
  void launchPair();
  void forbidStarts();
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
  void learn(std::optional<std::string> Discoveries::*kind, std::string value);
  void recordDiscoveries();
  void failEnrolment(std::string reason);

  [[nodiscard]] ProcessOptions childOptions(const SharedPair& pair, const std::string& name,
                                            const std::string& tag);
  void attachLogging(ProcessOptions& options, const SharedPair& pair, const std::string& tag);
  [[nodiscard]] std::vector<std::string> clientArguments() const;
  [[nodiscard]] bool hasTarget() const;
  void keepLine(std::string line);
  void note(const std::string& text);
  /// Changes what can be read from outside.
  template <typename Change>
  void publish(Change change) {
    const std::scoped_lock lock(published_);
    change();
  }
  /// Runs `work` on the queue, later, unless this has gone by then. So does `onMain` on the main
  /// loop.
  void onQueue(std::function<void(TailnetProcess&)> work);
  void onMain(std::function<void(TailnetProcess&)> work);
  void reportStateChange();

  const Runtime runtime_;
  const ServerEntry server_;
  mutable SerialQueue queue_;

  bool stopRequested_ = false;
  std::optional<SecretString> pendingPreauthKey_;
  std::uint64_t keyNumber_ = 0;  // counts the keys; 0: there has been none
  std::uint64_t attempts_ = 0;   // the number of the newest start: an older one was overtaken
  std::shared_ptr<TailnetProcess> predecessor_;
  Ending ending_;

  mutable std::mutex published_;  // guards visible_
  Visible visible_;
};

}  // namespace zephyl
