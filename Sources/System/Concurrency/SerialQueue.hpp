#pragma once

#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

class ThreadPool;

/// Runs tasks one at a time, in the order in which they came; what they touch needs no other
/// lock. Tasks run on threads of the pool, except that `sync` on an idle queue (nothing running,
/// nothing pending) runs on the caller's thread at once.
///
/// All operations may be called from any thread. A queue may go away while tasks are pending;
/// they still run, so they hold what they touch weakly. The pool and the clock outlive the queue
/// and its tasks.
class SerialQueue {
 public:
  SerialQueue(std::string label, ThreadPool& pool, Clock& clock);

  [[nodiscard]] const std::string& label() const;

  void async(Task task);

  /// Runs `work` on the queue, waits for it and returns what it returns, or throws what it throws.
  /// Calling it from the queue itself is a programming error and asserts.
  template <typename Work>
  auto sync(Work&& work) -> std::invoke_result_t<Work>;

  /// Like `async`, `delay` from now.
  void after(Duration delay, Task task);

  /// Whether the calling code runs on this queue.
  [[nodiscard]] bool isCurrent() const;

 private:
  struct State;
  using Step = void (*)(void*);  // a borrowed callable: sync allocates nothing when idle

  void runSync(Step step, void* context);

  std::shared_ptr<State> state_;
  Clock& clock_;
};

template <typename Work>
auto SerialQueue::sync(Work&& work) -> std::invoke_result_t<Work> {
  using Value = std::invoke_result_t<Work>;
  if constexpr (std::is_void_v<Value>) {
    runSync([](void* context) { (*static_cast<std::remove_reference_t<Work>*>(context))(); },
            const_cast<void*>(static_cast<const void*>(&work)));
  } else {
    std::optional<Value> value;
    auto keep = [&] { value.emplace(work()); };
    runSync([](void* context) { (*static_cast<decltype(keep)*>(context))(); }, &keep);
    return std::move(*value);
  }
}

}  // namespace zephyl
