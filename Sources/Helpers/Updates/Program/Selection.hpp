#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Helpers/Updates/Program/Appcast.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Data/Result.hpp"

/// Which release of a feed is for whom. Pure.
namespace zephyl {

/// The installation that checks for updates.
struct InstallationProfile {
  std::string installedVersion;
  std::string architecture;   ///< as the kernel names it, such as "x86_64"
  std::string systemVersion;  ///< of the C library, on which it depends what starts here
  std::vector<std::string> channels;
  std::vector<std::string> skip;  ///< offered only if critical
  std::optional<FailedVersion>
      failed;  ///< offered only if critical in a feed newer than its failure
  std::int64_t rolloutGroup = 0;
  bool userInitiated = false;
  std::chrono::sys_seconds now;
};

/// A phased roll-out reaches one group after the other, an interval apart.
inline constexpr std::int64_t rolloutGroups = 7;

/// Returns the highest version that is newer than the installed one and meant for `installation`;
/// nullopt if there is none. Fails if the feed does not describe that version completely.
/// `feedDate`: of the feed that lists the items.
Result<std::optional<UpdateOffer>> chooseUpdate(const std::vector<AppcastItem>& items,
                                                std::chrono::sys_seconds feedDate,
                                                const InstallationProfile& installation);

/// Returns the date of a feed. Fails if it has none, or is older than `newest`, the date of the
/// newest feed seen before: a feed that was signed once can be served again at any time.
Result<std::chrono::sys_seconds> checkFeedDate(const Appcast& appcast,
                                               std::optional<std::chrono::sys_seconds> newest);

/// Whether an offer is complete, and newer than what is installed.
Result<void> checkOffer(const UpdateOffer& offer, const std::string& installedVersion);

}  // namespace zephyl
