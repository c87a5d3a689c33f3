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

/// When updates are looked for, and which. Kept in the user defaults:
///
///     SULastCheckTime            seconds since 1970, as a text
///     SUScheduledCheckInterval   seconds, an integer; a day when absent
///     SUAutomaticallyUpdate      1: updates found by a scheduled check are installed unasked
///     SUSkippedVersion           the version that the user does not want to hear of
///     SUChannels                 names, separated by spaces
///     SUUpdateGroupIdentifier    this installation's place in phased roll-outs
///     SUFeedDate                 the date of the newest feed that was seen, in seconds since 1970,
///                                a space, and the address of the feed
///     SUCheckingSince            when the first check was scheduled, in seconds since 1970
///     SUMissingChecksTold        1: the user has been told that checks fail
///
/// Callable from any thread.
class UpdateSettings {
 public:
  using Time = std::chrono::sys_seconds;

  /// `defaults` outlives it.
  explicit UpdateSettings(UserDefaults& defaults) : defaults_(&defaults) {}

  [[nodiscard]] std::chrono::seconds checkInterval() const;
  [[nodiscard]] std::optional<Time> lastCheck() const;
  void setLastCheck(Time time) const;
  [[nodiscard]] bool installsAutomatically() const;
  [[nodiscard]] std::optional<std::string> skippedVersion() const;
  void setSkippedVersion(const std::string& version) const;
  [[nodiscard]] std::vector<std::string> channels() const;
  /// The date of the newest feed that was seen at `address`; nullopt if none was.
  [[nodiscard]] std::optional<Time> newestFeedDate(const std::string& address) const;
  /// Remembers the date of a feed unless a newer one was seen at the same address.
  void rememberFeedDate(const std::string& address, Time date) const;
  /// The time of the last successful check; before the first one, when checks began, which is `now`
  /// when this is called for the first time.
  [[nodiscard]] Time lastSuccess(Time now) const;
  [[nodiscard]] bool missingChecksTold() const;
  void setMissingChecksTold(bool told) const;
  /// Drawn once, from `random` in [0, 1).
  [[nodiscard]] std::int64_t rolloutGroup(const std::function<double()>& random) const;

 private:
  UserDefaults* defaults_;
};

/// The user is notified after this long without a successful check.
inline constexpr std::chrono::hours missingChecksTimeout{24 * 28};

/// How long until the next scheduled check. `random`, in [0, 1), keeps installations from asking
/// all at once: a check that is due is put off by up to 1/720 of the interval (two minutes of a
/// day), one in the future by up to 1/24. Pure.
std::chrono::milliseconds untilNextCheck(std::optional<std::chrono::sys_seconds> last,
                                         std::chrono::sys_seconds now,
                                         std::chrono::seconds interval, double random);
/// The same after a check that failed: 1/24 to 1/12 of the interval.
std::chrono::milliseconds untilRetry(std::chrono::seconds interval, double random);

}  // namespace zephyl
