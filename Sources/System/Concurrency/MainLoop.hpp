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

/// The task loop of the main thread, which owns all controller state and decides what is shown. The
/// thread that constructs the loop is the main thread.
///
/// After `close`, `async` drops its tasks, and every `sync`, including those that wait, fails with
/// "shutting down", so that no thread waits for a closed loop.
///
/// During `run`, a task that takes longer than `TaskWatch::limit` is logged once: by the next
/// thread that adds a task, or when the task ends.
class MainLoop {
 public:
  /// Measures the duration of tasks with `now`, a clock that never goes back.
  explicit MainLoop(std::function<Instant()> now = std::chrono::steady_clock::now);
  ~MainLoop() { close(); }
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  /// Runs `task` on the main thread, later. Callable from any thread.
  void async(Task task);

  /// Runs `task` on the main thread once, `delay` from now. Destroying or cancelling the timer on
  /// the main thread cancels the task even if it is already due. Callable from any thread, as is
  /// `every`. `clock` must outlive the timer, and the loop must outlive the clock's timers.
  [[nodiscard]] Timer after(Clock& clock, Duration delay, Task task);
  /// Runs `task` on the main thread every `interval`, first one interval from now.
  [[nodiscard]] Timer every(Clock& clock, Duration interval, Task task);

  /// Returns a function that runs `work` with its arguments on the main thread, later. It is
  /// callable from any thread, so it suits as a completion handler that another thread calls.
  template <typename Work>
  [[nodiscard]] auto later(Work work) {
    return [this, work = std::move(work)](auto&&... values) {
      async([work, ... kept = std::forward<decltype(values)>(values)]() mutable {
        work(std::move(kept)...);
      });
    };
  }

  /// Runs `work` on the main thread, waits for it and returns its result. Callable from any thread
  /// but the main one. Fails with "shutting down" if the loop is closed or `stop` is requested
  /// before the work begins, or if the work throws (see TaskFailure).
  template <typename Work>
  auto sync(Work&& work, std::stop_token stop = {}) -> Result<std::invoke_result_t<Work>>;

  /// Runs tasks until `quit`. Main thread only, as are the next two functions.
  void run();
  /// Runs the tasks that are pending now, and returns. For tests.
  void runPending();
  /// Waits for a task for at most `limit` of real time. Returns whether a task is pending.
  bool waitForTask(Duration limit);

  /// Makes `run` return after the current task. Callable from any thread.
  void quit();
  /// Drops all pending and future tasks. Callable from any thread.
  void close();

  [[nodiscard]] bool isCurrent() const { return std::this_thread::get_id() == thread_; }

 private:
  enum class Progress { pending, running, done, abandoned };
  struct Visit {
    Progress progress = Progress::pending;
  };

  struct Entry {
    Task task;
    const std::type_info* type;  ///< of the caller's task, without its wrappers
  };

  void enqueue(Entry entry);
  [[nodiscard]] Task posting(const std::shared_ptr<Task>& task);
  void runNext(std::unique_lock<std::mutex>& lock);
  /// Returns false if the loop was closed or a stop requested before the work began, or if the work
  /// threw.
  bool runAndWait(const Task& work, const std::stop_token& stop);

  const std::thread::id thread_;
  std::mutex mutex_;
  std::condition_variable wake_;     // a task was added, or quit was called
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
