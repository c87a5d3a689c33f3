#pragma once

#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

class ThreadPool;

/// Runs tasks one at a time, in the order in which they were added, so the state that they share
/// needs no other lock. Tasks run on threads of the pool, except that `sync` on an idle queue
/// (nothing running, nothing pending) runs on the caller's thread at once.
///
/// All operations are callable from any thread. A queue may be destroyed while tasks are pending.
/// They still run, so they must hold their owner weakly. The pool and the clock must outlive the
/// queue and its tasks.
class SerialQueue {
 public:
  SerialQueue(std::string label, ThreadPool& pool, Clock& clock);

  [[nodiscard]] const std::string& label() const;

  void async(Task task);

  /// Runs `work` on the queue, waits for it and returns its result or rethrows its exception. Must
  /// not be called from the queue itself, which is asserted.
  template <typename Work>
  auto sync(Work&& work) -> std::invoke_result_t<Work>;

  /// Like `async`, but adds the task `delay` from now.
  void after(Duration delay, Task task);

  /// Returns whether the caller runs on this queue.
  [[nodiscard]] bool isCurrent() const;

 private:
  struct State;
  using Step = void (*)(void*);  // a borrowed callable, so sync on an idle queue does not allocate

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
