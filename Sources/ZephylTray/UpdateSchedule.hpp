#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "System/Clock.hpp"

namespace zephyl {

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
namespace updateSettings {

using Time = std::chrono::sys_seconds;

std::chrono::seconds checkInterval();
std::optional<Time> lastCheck();
void setLastCheck(Time time);
bool installsAutomatically();
std::optional<std::string> skippedVersion();
void setSkippedVersion(const std::string& version);
std::vector<std::string> channels();
/// The date of the newest feed that was seen at `address`; nullopt if none was.
std::optional<Time> newestFeedDate(const std::string& address);
/// Remembers the date of a feed unless a newer one was seen at the same address.
void rememberFeedDate(const std::string& address, Time date);
/// The time of the last successful check; before the first one, when checks began, which is `now`
/// when this is called for the first time.
Time lastSuccess(Time now);
bool missingChecksTold();
void setMissingChecksTold(bool told);
/// Drawn once, from `random` in [0, 1).
std::int64_t rolloutGroup(const std::function<double()>& random);

}  // namespace updateSettings

/// The user is notified after this long without a successful check.
inline constexpr std::chrono::hours missingChecksLimit{24 * 28};

/// How long until the next scheduled check. `random`, in [0, 1), keeps installations from asking
/// all at once: a check that is due is put off by up to 1/720 of the interval (two minutes of a
/// day), one in the future by up to 1/24. Pure.
std::chrono::milliseconds untilNextCheck(std::optional<std::chrono::sys_seconds> last,
                                         std::chrono::sys_seconds now,
                                         std::chrono::seconds interval, double random);
/// The same after a check that failed: 1/24 to 1/12 of the interval.
std::chrono::milliseconds untilRetry(std::chrono::seconds interval, double random);

}  // namespace zephyl
