#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Helpers/Updates/Program/Appcast.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Data/Result.hpp"

/// The choice of a release from a feed. Pure.
namespace zephyl {

/// The installation that checks for updates.
struct InstallationProfile {
  std::string installedVersion;
  std::string architecture;   ///< the kernel's name, such as "x86_64"
  std::string systemVersion;  ///< the version of the C library
  std::vector<std::string> channels;
  std::vector<std::string> skip;  ///< offered only if critical
  std::optional<FailedVersion>
      failed;  ///< offered only if critical in a feed newer than its failure
  std::int64_t rolloutGroup = 0;
  bool userInitiated = false;
  std::chrono::sys_seconds now;
};

/// The number of groups of a phased roll-out, which reaches one group per interval.
inline constexpr std::int64_t rolloutGroups = 7;

/// Returns the highest version that is newer than the installed one and suitable for
/// `installation`, or nullopt if there is none. Fails if the feed does not describe that version
/// completely. `feedDate` is the date of the feed that contains the items.
Result<std::optional<UpdateOffer>> chooseUpdate(const std::vector<AppcastItem>& items,
                                                std::chrono::sys_seconds feedDate,
                                                const InstallationProfile& installation);

/// Returns the date of a feed. Fails if it has none or is older than `newest`, the date of the
/// newest known feed, because an attacker can serve an old signed feed at any time.
Result<std::chrono::sys_seconds> checkFeedDate(const Appcast& appcast,
                                               std::optional<std::chrono::sys_seconds> newest);

/// Fails unless an offer is complete and newer than the installed version.
Result<void> checkOffer(const UpdateOffer& offer, const std::string& installedVersion);

}  // namespace zephyl
