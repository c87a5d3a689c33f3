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

/// A thread that waits on descriptors and deadlines. The program's main one, "io", waits for its
/// children as well; it lives as long as the process, so they can be forked on it: the kernel's
/// parent-death signal follows the thread that forked.
///
/// Handlers on it must be short and never wait for another thread. After one that throws (see
/// TaskFailure) the thread goes on with the next.
class Reactor {
 public:
  /// Starts the thread. The system shows up to 15 characters of its name.
  explicit Reactor(std::string name = "io");
  /// Drops what is still waiting and joins the thread; not called from the thread itself.
  ~Reactor();
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;

  /// Runs `task` on the reactor's thread, later. From any thread.
  void post(Task task);
  /// Runs `task` on the reactor's thread and waits for it. Runs it at once when already there.
  /// Throws what the task throws.
  void run(const Task& task);
  [[nodiscard]] bool isCurrent() const;

  [[nodiscard]] boost::asio::io_context& context();

 private:
  struct Loop;
  std::unique_ptr<Loop> loop_;
  std::thread thread_;
};

}  // namespace zephyl
