#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

class UserDefaults;

/// The settings of updates, stored in the user defaults:
///
///     SULastCheckTime            seconds since 1970, as a string
///     SUScheduledCheckInterval   seconds, an integer; a day if absent
///     SUAutomaticallyUpdate      1: updates from scheduled checks are installed without asking
///     SUSkippedVersion           the version that the user has skipped
///     SUChannels                 names, separated by spaces
///     SUUpdateGroupIdentifier    this installation's group in phased roll-outs
///     SUFeedDate                 the date of the newest known feed in seconds since 1970, a space,
///     and
///                                the address of the feed
///     SUCheckingSince            when the first check was scheduled, in seconds since 1970
///     SUMissingChecksTold        1: the user was notified that checks fail
///
/// Callable from any thread.
class UpdateSettings {
 public:
  using Time = std::chrono::sys_seconds;

  /// `defaults` must outlive it.
  explicit UpdateSettings(UserDefaults& defaults) : defaults_(&defaults) {}

  [[nodiscard]] std::chrono::seconds checkInterval() const;
  [[nodiscard]] std::optional<Time> lastCheck() const;
  void setLastCheck(Time time) const;
  [[nodiscard]] bool installsAutomatically() const;
  [[nodiscard]] std::optional<std::string> skippedVersion() const;
  void setSkippedVersion(const std::string& version) const;
  [[nodiscard]] std::vector<std::string> channels() const;
  /// Returns the date of the newest known feed at `address`, or nullopt.
  [[nodiscard]] std::optional<Time> newestFeedDate(const std::string& address) const;
  /// Stores the date of a feed unless a newer one at the same address is known.
  void rememberFeedDate(const std::string& address, Time date) const;
  /// Returns the time of the last successful check. Before the first one, returns the time at which
  /// this was called for the first time, which is `now` for the first call.
  [[nodiscard]] Time lastSuccess(Time now) const;
  [[nodiscard]] bool missingChecksReported() const;
  void setMissingChecksReported(bool reported) const;
  /// Returns the group, which is chosen once with `random`, in [0, 1).
  [[nodiscard]] std::int64_t rolloutGroup(const std::function<double()>& random) const;

 private:
  UserDefaults* defaults_;
};

/// The time without a successful check after which the user is notified.
inline constexpr std::chrono::hours missingChecksTimeout{24 * 28};

/// Returns the time until the next scheduled check. `random`, in [0, 1), distributes the requests
/// of many installations: a check that is due is delayed by up to 1/720 of the interval (two
/// minutes of a day), and a later one by up to 1/24. Pure.
std::chrono::milliseconds untilNextCheck(std::optional<std::chrono::sys_seconds> last,
                                         std::chrono::sys_seconds now,
                                         std::chrono::seconds interval, double random);
/// Returns the time until the next check after a failed one: 1/24 to 1/12 of the interval. Pure.
std::chrono::milliseconds untilRetry(std::chrono::seconds interval, double random);

}  // namespace zephyl
