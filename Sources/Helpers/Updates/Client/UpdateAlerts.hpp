#pragma once

#include <optional>
#include <string>

#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"

/// The alerts about updates, as values, with the meaning of their buttons. Pure.
namespace zephyl::alerts {

/// Returns the alert about an available update. A critical update cannot be skipped.
Alert updateFound(const UpdateOffer& offer, const std::string& currentVersion);
enum class UpdateButton : std::size_t { install, later, skip };

/// Returns the alert about an update that this program cannot install.
Alert updateFoundElsewhere(const UpdateOffer& offer, const std::string& currentVersion,
                           const std::string& obstacle);

/// Returns the alert about a running download, with a progress bar. Its only button cancels.
Alert updateDownloading(const UpdateOffer& offer);
/// Returns the progress in words, such as "3.1 of 12.4 MB". A complete download is being verified.
Progress downloadProgress(const UpdateProgress& progress);

Alert upToDate(const std::string& currentVersion);

Alert updateFailed(const std::string& message);

/// Returns the alert that no check has succeeded for `missingChecksTimeout`. `reason` is why the
/// last one failed.
Alert updateChecksMissing(const std::string& reason);

/// Returns the alert that a version was rolled back.
Alert updateRolledBack(const std::string& failedVersion, const std::string& currentVersion);

}  // namespace zephyl::alerts
