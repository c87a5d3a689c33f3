#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "System/Data/LogRing.hpp"

namespace zephyl {

/// The displayed state of a tailnet: a copy, taken at one moment.
struct TailnetState {
  std::optional<std::string> boundAddress;   ///< the data tunnel's local address, "host:port"
  std::optional<std::string> activeRelay;    ///< the relay that verified the server's control plane
  std::optional<std::string> stalledReason;  ///< set while retries follow the slow schedule
  std::optional<std::string> lastEnrolError;
  std::optional<std::string> unresolvedTarget;
  std::int64_t failureCount = 0;  ///< consecutive failed starts and exits

  void clearFailures() {
    failureCount = 0;
    stalledReason.reset();
  }

  bool operator==(const TailnetState&) const = default;
};

/// The state and the log of a tailnet, for readers on other threads than its queue. Callable from
/// any thread. No operation waits for more than a copy.
class PublishedTailnet {
 public:
  [[nodiscard]] TailnetState state() const {
    const std::scoped_lock lock(mutex_);
    return state_;
  }
  /// Calls `change` with the state, under the lock, and returns its result.
  template <typename Change>
  auto change(Change change) {
    const std::scoped_lock lock(mutex_);
    return change(state_);
  }

  void appendLine(std::string line);
  /// Writes a message of the tray to the tray's log and to this one.
  void logMessage(const std::string& text);

  [[nodiscard]] std::vector<std::string> recentLog() const;
  /// Returns the lines of the log after `position`. See `LogRing::since`.
  [[nodiscard]] LogTail logSince(std::uint64_t position) const;
  [[nodiscard]] bool hasLog() const;

 private:
  mutable std::mutex mutex_;  // guards all other members
  TailnetState state_;
  LogRing log_;
};

}  // namespace zephyl
