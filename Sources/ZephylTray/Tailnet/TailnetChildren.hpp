#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "System/Concurrency/Clock.hpp"
#include "ZephylTray/Tailnet/TailnetPair.hpp"

namespace zephyl {

class PublishedTailnet;

/// The current pair of children of a tailnet, and its end. At most one pair is current, from the
/// start of its daemon until both of its children have ended.
///
/// At the end both children are sent SIGTERM. Each has `grace` to end and is then killed: the
/// client from the request on, the daemon from the end of the client on.
///
/// Must be used on the tailnet's queue, except where stated otherwise. The clock and `published`
/// must outlive it.
class TailnetChildren {
 public:
  using SharedPair = std::shared_ptr<TailnetPair>;
  static constexpr Duration grace = ChildProcess::terminationGrace;

  /// Runs a task on the tailnet's queue later, unless the tailnet was destroyed by then.
  using RunAfter = std::function<void(Duration delay, Task task)>;

  TailnetChildren(Clock& clock, PublishedTailnet& published, RunAfter runAfter);

  /// Returns the current pair, or null. Callable from any thread, as are the next two functions.
  [[nodiscard]] SharedPair pair() const;
  /// Returns whether both children run and neither should end.
  [[nodiscard]] bool isRunning() const;
  /// Sends SIGTERM to the children of the current pair. Does not wait.
  void requestEnd() const;

  /// Makes a pair current whose daemon has started. Requires that no other pair is current.
  void setPair(SharedPair pair);

  /// Calls `then` at the next end of the current pair, after the tasks of earlier calls.
  void whenEnded(Task then);
  /// Ends the current pair. If there is none, or it has ended, it counts as ended now.
  void end();
  /// Continues the end after the exit of a child. Does nothing unless the pair is ending.
  void handleExit();

  /// Waits until the children of `pair` have ended and kills those that still run at `deadline`.
  /// Must be called on the main thread at shutdown.
  void awaitEnd(const TailnetPair& pair, Instant deadline) const;

 private:
  void continueEnd();
  void finishEnd();
  void kill(ChildProcess& child) const;

  Clock& clock_;
  PublishedTailnet& published_;
  const RunAfter runAfter_;

  mutable std::mutex mutex_;  // guards pair_
  SharedPair pair_;

  std::vector<Task> whenEnded_;
  TailnetPair::Child graceHolder_;  // the child whose grace has started
};

}  // namespace zephyl
