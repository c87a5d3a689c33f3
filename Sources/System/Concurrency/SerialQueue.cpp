#include "System/Concurrency/SerialQueue.hpp"

#include <cassert>
#include <deque>
#include <exception>
#include <latch>
#include <mutex>

#include "System/Concurrency/TaskFailure.hpp"
#include "System/Concurrency/ThreadPool.hpp"

namespace zephyl {

struct SerialQueue::State : std::enable_shared_from_this<State> {
  State(std::string name, ThreadPool& threads) : label(std::move(name)), pool(threads) {}

  const std::string label;
  ThreadPool& pool;
  std::mutex mutex;
  std::deque<Task> tasks;
  bool busy = false;  // a task runs, or a drain was submitted to the pool

  void enqueue(Task task);
  void drain();
  /// Ends the turn of the current thread. Submits another drain if tasks are pending. The caller
  /// holds `mutex`.
  void release();
};

namespace {

/// A stack of the queues whose tasks are running on this thread, innermost first.
struct Frame {
  explicit Frame(const void* runningQueue) : queue(runningQueue), outer(innermost) {
    innermost = this;
  }
  ~Frame() { innermost = outer; }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  static bool contains(const void* queue) {
    for (const Frame* frame = innermost; frame != nullptr; frame = frame->outer) {
      if (frame->queue == queue) return true;
    }
    return false;
  }

  const void* const queue;
  Frame* const outer;
  static thread_local Frame* innermost;
};

thread_local Frame* Frame::innermost = nullptr;

/// Runs the work of a `sync`. Returns its exception, or null.
std::exception_ptr attempt(void (*step)(void*), void* context) noexcept {
  try {
    step(context);
    return nullptr;
  } catch (...) {
    return std::current_exception();
  }
}

constexpr std::size_t tasksPerTurn = 64;  // so that a busy queue does not occupy a thread for long

}  // namespace

void SerialQueue::State::enqueue(Task task) {
  const std::scoped_lock lock(mutex);
  tasks.push_back(std::move(task));
  if (busy) return;
  busy = true;
  pool.submit([self = shared_from_this()] { self->drain(); });
}

void SerialQueue::State::drain() {
  const Frame frame(this);
  std::unique_lock lock(mutex);
  for (std::size_t turn = 0; turn < tasksPerTurn && !tasks.empty(); ++turn) {
    Task task = std::move(tasks.front());
    tasks.pop_front();
    lock.unlock();
    taskFailure::guard(label, task);
    task = nullptr;
    lock.lock();
  }
  release();
}

void SerialQueue::State::release() {
  busy = !tasks.empty();
  if (busy) pool.submit([self = shared_from_this()] { self->drain(); });
}

SerialQueue::SerialQueue(std::string label, ThreadPool& pool, Clock& clock)
    : state_(std::make_shared<State>(std::move(label), pool)), clock_(clock) {}

const std::string& SerialQueue::label() const {
  return state_->label;
}

void SerialQueue::async(Task task) {
  state_->enqueue(std::move(task));
}

void SerialQueue::after(Duration delay, Task task) {
  clock_.afterDetached(delay, [state = state_, task = std::move(task)]() mutable {
    state->enqueue(std::move(task));
  });
}

bool SerialQueue::isCurrent() const {
  return Frame::contains(state_.get());
}

void SerialQueue::runSync(Step step, void* context) {
  assert(!isCurrent() && "sync from the queue itself never returns");
  State& state = *state_;
  std::unique_lock lock(state.mutex);
  if (!state.busy) {
    state.busy = true;
    lock.unlock();
    const std::exception_ptr failure = [&] {
      const Frame frame(&state);
      return attempt(step, context);
    }();
    lock.lock();
    state.release();
    if (failure) std::rethrow_exception(failure);
    return;
  }
  std::latch done(1);
  std::exception_ptr failure;
  state.tasks.emplace_back([&] {
    failure = attempt(step, context);
    done.count_down();
  });
  lock.unlock();
  done.wait();
  if (failure) std::rethrow_exception(failure);
}

}  // namespace zephyl
