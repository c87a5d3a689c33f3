#include "Helpers/Updates/Client/UpdateSchedule.hpp"

#include <algorithm>

#include "System/Data/Text.hpp"
#include "System/Files/UserDefaults.hpp"

namespace zephyl {

namespace {

using std::chrono::milliseconds;

constexpr auto lastCheckKey = "SULastCheckTime";
constexpr auto intervalKey = "SUScheduledCheckInterval";
constexpr auto automaticKey = "SUAutomaticallyUpdate";
constexpr auto skippedKey = "SUSkippedVersion";
constexpr auto channelsKey = "SUChannels";
constexpr auto groupKey = "SUUpdateGroupIdentifier";
constexpr auto feedDateKey = "SUFeedDate";
constexpr auto sinceKey = "SUCheckingSince";
constexpr auto reportedKey = "SUMissingChecksTold";

constexpr std::chrono::seconds day = std::chrono::hours(24);
constexpr std::chrono::seconds longestInterval = 365 * day;
constexpr std::int64_t groups = 7;

milliseconds fraction(milliseconds interval, int parts, double random) {
  return milliseconds(
      static_cast<std::int64_t>(random * static_cast<double>((interval / parts).count())));
}

std::optional<std::chrono::sys_seconds> parseTime(std::string_view text) {
  const auto seconds = parseDecimal(text);
  if (!seconds) return std::nullopt;
  return std::chrono::sys_seconds(std::chrono::seconds(*seconds));
}

std::string secondsOf(std::chrono::sys_seconds time) {
  return std::to_string(time.time_since_epoch().count());
}

}  // namespace

std::chrono::seconds UpdateSettings::checkInterval() const {
  const auto seconds = defaults_->integer(intervalKey).value_or(day.count());
  return std::clamp(std::chrono::seconds(seconds), std::chrono::seconds(1), longestInterval);
}

std::optional<UpdateSettings::Time> UpdateSettings::lastCheck() const {
  return parseTime(defaults_->string(lastCheckKey).value_or(""));
}

void UpdateSettings::setLastCheck(Time time) const {
  defaults_->setString(lastCheckKey, secondsOf(time));
}

bool UpdateSettings::installsAutomatically() const {
  return defaults_->integer(automaticKey) == 1;
}

std::optional<std::string> UpdateSettings::skippedVersion() const {
  return defaults_->string(skippedKey);
}

void UpdateSettings::setSkippedVersion(const std::string& version) const {
  defaults_->setString(skippedKey, version);
}

std::vector<std::string> UpdateSettings::channels() const {
  const std::string text = defaults_->string(channelsKey).value_or("");
  std::vector<std::string> names;
  for (const auto name : splitNonEmpty(text, ' ')) names.emplace_back(name);
  return names;
}

std::optional<UpdateSettings::Time> UpdateSettings::newestFeedDate(
    const std::string& address) const {
  const std::string text = defaults_->string(feedDateKey).value_or("");
  const auto space = text.find(' ');
  if (space == std::string::npos || text.substr(space + 1) != address) return std::nullopt;
  return parseTime(std::string_view(text).substr(0, space));
}

void UpdateSettings::rememberFeedDate(const std::string& address, Time date) const {
  const auto known = newestFeedDate(address);
  if (known && *known >= date) return;
  defaults_->setString(feedDateKey, secondsOf(date).append(" ").append(address));
}

UpdateSettings::Time UpdateSettings::lastSuccess(Time now) const {
  if (const auto last = lastCheck()) return *last;
  if (const auto since = parseTime(defaults_->string(sinceKey).value_or(""))) return *since;
  defaults_->setString(sinceKey, secondsOf(now));
  return now;
}

bool UpdateSettings::missingChecksReported() const {
  return defaults_->string(reportedKey) == "1";
}

void UpdateSettings::setMissingChecksReported(bool reported) const {
  if (reported == missingChecksReported()) return;
  if (reported) {
    defaults_->setString(reportedKey, "1");
  } else {
    defaults_->remove(reportedKey);
  }
}

std::int64_t UpdateSettings::rolloutGroup(const std::function<double()>& random) const {
  const auto known = parseDecimal(defaults_->string(groupKey).value_or(""));
  if (known && *known >= 0 && *known < groups) return *known;
  const auto drawn = std::min(static_cast<std::int64_t>(random() * groups), groups - 1);
  defaults_->setString(groupKey, std::to_string(drawn));
  return drawn;
}

milliseconds untilNextCheck(std::optional<std::chrono::sys_seconds> last,
                            std::chrono::sys_seconds now, std::chrono::seconds interval,
                            double random) {
  constexpr int partsWhenDue = 720;
  constexpr int partsWhenNotDue = 24;
  // A time in the future comes from a wrong clock. The difference to a past time is not computed,
  // because it could overflow: a setting may contain any number.
  const bool isDue = !last || *last > now || *last <= now - interval;
  if (isDue) return fraction(interval, partsWhenDue, random);
  return *last + interval - now + fraction(interval, partsWhenNotDue, random);
}

milliseconds untilRetry(std::chrono::seconds interval, double random) {
  constexpr int parts = 24;
  return milliseconds(interval) / parts + fraction(interval, parts, random);
}

}  // namespace zephyl
