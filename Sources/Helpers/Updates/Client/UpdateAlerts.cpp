#include "Helpers/Updates/Client/UpdateAlerts.hpp"

#include <algorithm>
#include <cstdint>
#include <string>

#include "System/Data/Format.hpp"

namespace zephyl::alerts {

namespace {

std::string availability(const UpdateOffer& offer, const std::string& currentVersion) {
  return formatText("Zephyl {} is now available — you have {}.{}", offer.displayVersion,
                    currentVersion, offer.critical ? " This update is important." : "");
}

std::string notesOf(const UpdateOffer& offer) {
  return offer.releaseNotes.empty() ? "" : "\n\nRelease notes:\n\n" + offer.releaseNotes;
}

constexpr std::int64_t kilobyte = 1000;
constexpr std::int64_t megabyte = 1000 * kilobyte;

/// Returns a number of kilobytes, or of megabytes with one decimal, without its unit.
std::string amount(std::int64_t bytes, bool inKilobytes) {
  if (inKilobytes) return std::to_string(bytes / kilobyte);
  return formatText("{}.{}", bytes / megabyte, bytes % megabyte / (megabyte / 10));
}

/// Returns "3.1 of 12.4 MB", or "3.1 MB" if the total is unknown.
std::string amountInWords(std::int64_t received, std::int64_t total) {
  const bool inKilobytes = std::max(received, total) < megabyte;
  const auto* const unit = inKilobytes ? "kB" : "MB";
  if (total <= 0) return formatText("{} {}", amount(received, inKilobytes), unit);
  // Rounded up, so that a small total is not shown as 0.
  const std::int64_t all = total + (inKilobytes ? kilobyte : megabyte / 10) - 1;
  return formatText("{} of {} {}", amount(received, inKilobytes), amount(all, inKilobytes), unit);
}

}  // namespace

Alert updateFound(const UpdateOffer& offer, const std::string& currentVersion) {
  Alert alert{.style = Alert::Style::information,
              .heading = "A new version of Zephyl is available!",
              .explanation = availability(offer, currentVersion) +
                             " Would you like to install it now?" + notesOf(offer),
              .buttons = {"Install Update", "Remind Me Later"},
              .safeButton = static_cast<std::size_t>(UpdateButton::later)};
  if (!offer.critical) alert.buttons.emplace_back("Skip This Version");
  return alert;
}

Alert updateFoundElsewhere(const UpdateOffer& offer, const std::string& currentVersion,
                           const std::string& obstacle) {
  return {.style = Alert::Style::information,
          .heading = "A new version of Zephyl is available!",
          .explanation = availability(offer, currentVersion) + "\n\n" + obstacle + notesOf(offer),
          .buttons = {"OK"},
          .requestedByUser = true};
}

Alert updateDownloading(const UpdateOffer& offer) {
  return {.style = Alert::Style::information,
          .heading = formatText("Downloading Zephyl {}…", offer.displayVersion),
          .explanation =
              "The update is verified, and installed when the agent is idle. "
              "Zephyl then restarts.",
          .buttons = {"Cancel"},
          .progress = downloadProgress({.received = 0, .total = offer.length}),
          .requestedByUser = true};
}

Progress downloadProgress(const UpdateProgress& progress) {
  const auto received = std::max<std::int64_t>(progress.received, 0);
  if (progress.total > 0 && received >= progress.total) return {.text = "Verifying…"};
  Progress shown{.text = amountInWords(received, progress.total)};
  if (progress.total > 0) {
    shown.fraction = static_cast<double>(received) / static_cast<double>(progress.total);
  }
  return shown;
}

Alert upToDate(const std::string& currentVersion) {
  return {.style = Alert::Style::information,
          .heading = "You’re up to date!",
          .explanation =
              formatText("Zephyl {} is currently the newest version available.", currentVersion),
          .buttons = {"OK"},
          .requestedByUser = true};
}

Alert updateFailed(const std::string& message) {
  return {.heading = "Update Error!",
          .explanation = message + "\n\nNothing has been changed.",
          .buttons = {"OK"},
          .requestedByUser = true};
}

Alert updateChecksMissing(const std::string& reason) {
  return {.heading = "Zephyl could not check for updates for four weeks",
          .explanation = reason +
                         "\n\nMake sure that this computer is online, then choose “Check for "
                         "Updates…” in the menu. If that fails again, install the current "
                         "version by hand.",
          .buttons = {"OK"}};
}

Alert updateRolledBack(const std::string& failedVersion, const std::string& currentVersion) {
  return {.heading = formatText("Zephyl {} could not be started", failedVersion),
          .explanation = formatText(
              "You are using version {} again, as before the update. Nothing else has changed.",
              currentVersion),
          .buttons = {"OK"}};
}

}  // namespace zephyl::alerts
