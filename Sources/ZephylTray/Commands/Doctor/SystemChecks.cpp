#include "ZephylTray/Commands/Doctor/SystemChecks.hpp"

#include <sys/resource.h>
#include <sys/stat.h>

#include "System/Data/Format.hpp"
#include "System/Files/Bundle.hpp"

namespace zephyl {

namespace {

CalendarTime timeOfInstallation() {
  struct stat status {};
  const auto& executable = Bundle::main().executable();
  if (!executable || ::stat(executable->c_str(), &status) != 0) return {};
  return std::chrono::system_clock::from_time_t(status.st_mtime);
}

std::uint64_t descriptorLimit() {
  rlimit limit{};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_max : RLIM_INFINITY;
}

}  // namespace

Finding checkClock(CalendarTime now, CalendarTime installed) {
  constexpr auto tolerance = std::chrono::hours(24);  // file times may be in local time
  Finding finding{.check = "clock", .message = "It is plausible."};
  if (now + tolerance >= installed) return finding;
  finding.state = FindingState::wrong;
  finding.message =
      "It is behind the time at which Zephyl was installed, so certificates and "
      "updates are refused.";
  finding.advice = "Set it; `timedatectl` shows how it is set.";
  return finding;
}

Finding checkDescriptorLimit(std::uint64_t limit) {
  constexpr std::uint64_t required = 1024;
  Finding finding{.check = "descriptor limit", .message = "It is high enough."};
  if (limit >= required) return finding;
  finding.state = FindingState::wrong;
  finding.message =
      formatText("A process may open {} files only; Zephyl needs {}.", limit, required);
  finding.advice = "Raise the hard limit (`ulimit -Hn`), for example in /etc/security/limits.conf.";
  return finding;
}

Findings checkSystem() {
  return {checkClock(std::chrono::system_clock::now(), timeOfInstallation()),
          checkDescriptorLimit(descriptorLimit())};
}

}  // namespace zephyl
