#pragma once

#include <functional>
#include <utility>

#include "Desktop/Desktop.hpp"

namespace zephyl {

/// Reports, once, that the program's file was replaced while the program runs, as a package manager
/// does. The process goes on with the old version until it is restarted. Main thread only.
class ReplacementNotice {
 public:
  struct Port {
    /// Whether another file has the name of the running program's file now.
    std::function<bool()> isReplaced;
    /// Whether the program is installing an update itself. It restarts after that without the user.
    std::function<bool()> isUpdatingItself;
    std::function<void(const Notification&)> notify;
  };

  explicit ReplacementNotice(Port port) : port_(std::move(port)) {}

  /// Looks at the program's file. Reports when two calls in succession have found it replaced, so
  /// that a package is likely to be complete. Called at each poll of the agent, so that it costs no
  /// wake-ups.
  void check();

 private:
  enum class State { unchanged, replaced, reported };

  const Port port_;
  State state_ = State::unchanged;
};

}  // namespace zephyl
