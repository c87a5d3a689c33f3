#pragma once

#include <optional>
#include <string>

#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"

/// The alerts about updates, as values; what their buttons mean stands beside them. Pure.
namespace zephyl::alerts {

/// A critical update cannot be skipped.
Alert updateFound(const UpdateOffer& offer, const std::string& currentVersion);
enum class UpdateButton : std::size_t { install, later, skip };

/// There is one, but not to be installed by this program.
Alert updateFoundElsewhere(const UpdateOffer& offer, const std::string& currentVersion,
                           const std::string& obstacle);

/// Its one button cancels. It has a bar.
Alert updateDownloading(const UpdateOffer& offer);
/// How far it is, "3.1 of 12.4 MB" in words; what has come whole is being verified.
Progress downloadProgress(const UpdateProgress& progress);

Alert upToDate(const std::string& currentVersion);

Alert updateFailed(const std::string& message);

/// No check has succeeded for `missingChecksTimeout`; `reason`: why the last one failed.
Alert updateChecksMissing(const std::string& reason);

/// A version was rolled back.
Alert updateRolledBack(const std::string& failedVersion, const std::string& currentVersion);

}  // namespace zephyl::alerts
