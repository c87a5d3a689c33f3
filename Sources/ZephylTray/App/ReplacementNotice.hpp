#pragma once

#include <functional>
#include <utility>

#include "Desktop/Desktop.hpp"

namespace zephyl {

/// Notifies the user once when the program's file was replaced while the program runs, for example
/// by a package manager. The process continues with the old version until it is restarted. Main
/// thread only.
class ReplacementNotice {
 public:
  struct Port {
    /// Returns whether another file now has the name of the running program's file.
    std::function<bool()> isReplaced;
    /// Returns whether the program is installing an update itself, after which it restarts
    /// automatically.
    std::function<bool()> isUpdatingItself;
    std::function<void(const Notification&)> notify;
  };

  explicit ReplacementNotice(Port port) : port_(std::move(port)) {}

  /// Checks the program's file. Notifies after two successive calls have found it replaced, when a
  /// package is likely to be complete. Must be called at each poll of the agent, so that it causes
  /// no wake-ups of its own.
  void check();

 private:
  enum class State { unchanged, replaced, reported };

  const Port port_;
  State state_ = State::unchanged;
};

}  // namespace zephyl
