#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "System/Concurrency/Clock.hpp"

namespace boost::asio {
class io_context;
}

namespace zephyl {

/// A thread that waits for descriptors and deadlines. The program's main reactor, "io", also
/// watches the children. They can be forked on it because it lives as long as the process, and the
/// kernel's parent-death signal follows the thread that forked.
///
/// Handlers must be short and must never wait for another thread. If a handler throws (see
/// TaskFailure), the thread continues with the next one.
class Reactor {
 public:
  /// Starts the thread. The system shows at most 15 characters of its name.
  explicit Reactor(std::string name = "io");
  /// Drops pending tasks and joins the thread. Must not be called from the thread itself.
  ~Reactor();
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;

  /// Runs `task` on the reactor's thread, later. Callable from any thread.
  void post(Task task);
  /// Runs `task` on the reactor's thread and waits for it, or runs it at once if called on that
  /// thread. Rethrows what the task throws.
  void run(const Task& task);
  [[nodiscard]] bool isCurrent() const;

  [[nodiscard]] boost::asio::io_context& context();

 private:
  struct Loop;
  std::unique_ptr<Loop> loop_;
  std::thread thread_;
};

}  // namespace zephyl
