#include "ZephylTray/UpdateSchedule.hpp"

#include <algorithm>

#include "System/Text.hpp"
#include "System/UserDefaults.hpp"
#include "ZephylTray/Config.hpp"

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
constexpr auto toldKey = "SUMissingChecksTold";

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

namespace updateSettings {

std::chrono::seconds checkInterval() {
  const auto seconds = Config::defaults().integer(intervalKey).value_or(day.count());
  return std::clamp(std::chrono::seconds(seconds), std::chrono::seconds(1), longestInterval);
}

std::optional<Time> lastCheck() {
  return parseTime(Config::defaults().string(lastCheckKey).value_or(""));
}

void setLastCheck(Time time) {
  Config::defaults().setString(lastCheckKey, secondsOf(time));
}

bool installsAutomatically() {
  return Config::defaults().integer(automaticKey) == 1;
}

std::optional<std::string> skippedVersion() {
  return Config::defaults().string(skippedKey);
}

void setSkippedVersion(const std::string& version) {
  Config::defaults().setString(skippedKey, version);
}

std::vector<std::string> channels() {
  const std::string text = Config::defaults().string(channelsKey).value_or("");
  std::vector<std::string> names;
  for (const auto name : splitNonEmpty(text, ' ')) names.emplace_back(name);
  return names;
}

std::optional<Time> newestFeedDate(const std::string& address) {
  const std::string text = Config::defaults().string(feedDateKey).value_or("");
  const auto space = text.find(' ');
  if (space == std::string::npos || text.substr(space + 1) != address) return std::nullopt;
  return parseTime(std::string_view(text).substr(0, space));
}

void rememberFeedDate(const std::string& address, Time date) {
  const auto known = newestFeedDate(address);
  if (known && *known >= date) return;
  Config::defaults().setString(feedDateKey, secondsOf(date).append(" ").append(address));
}

Time lastSuccess(Time now) {
  if (const auto last = lastCheck()) return *last;
  if (const auto since = parseTime(Config::defaults().string(sinceKey).value_or(""))) return *since;
  Config::defaults().setString(sinceKey, secondsOf(now));
  return now;
}

bool missingChecksTold() {
  return Config::defaults().string(toldKey) == "1";
}

void setMissingChecksTold(bool told) {
  if (told == missingChecksTold()) return;
  if (told) {
    Config::defaults().setString(toldKey, "1");
  } else {
    Config::defaults().remove(toldKey);
  }
}

std::int64_t rolloutGroup(const std::function<double()>& random) {
  const auto known = parseDecimal(Config::defaults().string(groupKey).value_or(""));
  if (known && *known >= 0 && *known < groups) return *known;
  const auto drawn = std::min(static_cast<std::int64_t>(random() * groups), groups - 1);
  Config::defaults().setString(groupKey, std::to_string(drawn));
  return drawn;
}

}  // namespace updateSettings

milliseconds untilNextCheck(std::optional<std::chrono::sys_seconds> last,
                            std::chrono::sys_seconds now, std::chrono::seconds interval,
                            double random) {
  constexpr int partsWhenDue = 720;
  constexpr int partsWhenNot = 24;
  // A time in the future was written by a clock that was wrong. The difference to a time in the
  // past is not computed, because a setting may hold any number.
  const bool isDue = !last || *last > now || *last <= now - interval;
  if (isDue) return fraction(interval, partsWhenDue, random);
  return *last + interval - now + fraction(interval, partsWhenNot, random);
}

milliseconds untilRetry(std::chrono::seconds interval, double random) {
  constexpr int parts = 24;
  return milliseconds(interval) / parts + fraction(interval, parts, random);
}

}  // namespace zephyl
