#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <type_traits>
#include <utility>

#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/TaskWatch.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// The main thread's task loop: all controller state and every decision about what is shown
/// lives here. The thread that constructs it is the main thread.
///
/// Once closed it takes no more tasks: `async` drops them, and every `sync`, also one that is
/// already waiting, ends with the error "shutting down". So nobody hangs on a loop that is gone.
///
/// While `run` runs, a task that takes longer than `TaskWatch::limit` is logged once: by the next
/// thread that adds a task, at the latest when the task ends.
class MainLoop {
 public:
  /// `now` is the time by which tasks are watched, of a clock that never goes back.
  explicit MainLoop(std::function<Instant()> now = std::chrono::steady_clock::now);
  ~MainLoop() { close(); }
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  /// Runs `task` on the main thread, later. From any thread.
  void async(Task task);

  /// Runs `task` on the main thread once, `delay` from now. Destroying or cancelling the timer on
  /// the main thread cancels the task, also when it is due already. From any thread, as is `every`.
  /// `clock` outlives the timer, and the loop outlives the clock's timers.
  [[nodiscard]] Timer after(Clock& clock, Duration delay, Task task);
  /// Runs `task` on the main thread every `interval`, first one interval from now.
  [[nodiscard]] Timer every(Clock& clock, Duration interval, Task task);

  /// Returns a function that runs `work` on the main thread, later, with its arguments. It may be
  /// called from any thread, so it suits a completion that comes from another one.
  template <typename Work>
  [[nodiscard]] auto later(Work work) {
    return [this, work = std::move(work)](auto&&... values) {
      async([work, ... kept = std::forward<decltype(values)>(values)]() mutable {
        work(std::move(kept)...);
      });
    };
  }

  /// Runs `work` on the main thread, waits for it and returns what it returns. From any thread
  /// but the main one. A request to stop, too, ends the wait with "shutting down", unless the work
  /// has begun; so does work that throws (see TaskFailure).
  template <typename Work>
  auto sync(Work&& work, std::stop_token stop = {}) -> Result<std::invoke_result_t<Work>>;

  /// Runs tasks until `quit`. Main thread only, as are the next two.
  void run();
  /// Runs what is pending now and returns; the crank that tests turn.
  void runPending();
  /// Waits at most `limit` of real time for a task to come; whether one is pending.
  bool waitForTask(Duration limit);

  /// Makes `run` return after the task that is running. From any thread.
  void quit();
  /// From now on nothing runs any more. From any thread.
  void close();

  [[nodiscard]] bool isCurrent() const { return std::this_thread::get_id() == thread_; }

 private:
  enum class Progress { pending, running, done, abandoned };
  struct Visit {
    Progress progress = Progress::pending;
  };

  struct Entry {
    Task task;
    const std::type_info* type;  ///< of the task that the caller gave, without what wraps it
  };

  void enqueue(Entry entry);
  [[nodiscard]] Task posting(const std::shared_ptr<Task>& task);
  void runNext(std::unique_lock<std::mutex>& lock);
  /// False when the loop was closed, or a stop requested, before the work began, or when the work
  /// threw.
  bool runAndWait(const Task& work, const std::stop_token& stop);

  const std::thread::id thread_;
  std::mutex mutex_;
  std::condition_variable wake_;     // tasks came, or quit
  std::condition_variable visited_;  // a sync ended, or the loop was closed
  std::deque<Entry> tasks_;
  TaskWatch watch_;
  bool quitting_ = false;
  bool closed_ = false;
};

template <typename Work>
auto MainLoop::sync(Work&& work, std::stop_token stop) -> Result<std::invoke_result_t<Work>> {
  using Value = std::invoke_result_t<Work>;
  const auto shuttingDown = [] { return Error{"shutting down"}; };
  if constexpr (std::is_void_v<Value>) {
    if (!runAndWait([&] { work(); }, stop)) return shuttingDown();
    return {};
  } else {
    std::optional<Value> value;
    if (!runAndWait([&] { value.emplace(work()); }, stop)) return shuttingDown();
    return std::move(*value);
  }
}

}  // namespace zephyl
