#include "ZephylTray/UpdateAlerts.hpp"

#include <fmt/format.h>

namespace zephyl::alerts {

namespace {

std::string availability(const UpdateOffer& offer, const std::string& currentVersion) {
  return fmt::format("Zephyl {} is now available — you have {}.{}", offer.displayVersion,
                     currentVersion, offer.critical ? " This update is important." : "");
}

std::string notesOf(const UpdateOffer& offer) {
  return offer.releaseNotes.empty() ? "" : "\n\nRelease notes:\n\n" + offer.releaseNotes;
}

std::string sizeOf(const UpdateOffer& offer) {
  constexpr std::int64_t tenth = 100'000;  // of a megabyte
  const std::int64_t tenths = (offer.length + tenth - 1) / tenth;
  return fmt::format("{}.{} MB", tenths / 10, tenths % 10);
}

}  // namespace

Alert updateFound(const UpdateOffer& offer, const std::string& currentVersion) {
  Alert alert{.messageText = "A new version of Zephyl is available!",
              .informativeText = availability(offer, currentVersion) +
                                 " Would you like to install it now?" + notesOf(offer),
              .buttons = {"Install Update", "Remind Me Later"},
              .safeButton = static_cast<std::size_t>(UpdateButton::later)};
  if (!offer.critical) alert.buttons.emplace_back("Skip This Version");
  return alert;
}

Alert updateFoundElsewhere(const UpdateOffer& offer, const std::string& currentVersion,
                           const std::string& obstacle) {
  return {
      .messageText = "A new version of Zephyl is available!",
      .informativeText = availability(offer, currentVersion) + "\n\n" + obstacle + notesOf(offer),
      .buttons = {"OK"}};
}

Alert updateDownloading(const UpdateOffer& offer) {
  return {.messageText = fmt::format("Downloading Zephyl {}…", offer.displayVersion),
          .informativeText =
              fmt::format("{}. It is verified, and installed when the agent is idle. Zephyl then "
                          "restarts by itself.",
                          sizeOf(offer)),
          .buttons = {"Cancel"}};
}

Alert upToDate(const std::string& currentVersion) {
  return {.messageText = "You’re up to date!",
          .informativeText =
              fmt::format("Zephyl {} is currently the newest version available.", currentVersion),
          .buttons = {"OK"}};
}

Alert updateFailed(const std::string& message) {
  return {.messageText = "Update Error!",
          .informativeText = message + "\n\nNothing has been changed.",
          .buttons = {"OK"}};
}

Alert updateTakenBack(const std::string& failedVersion, const std::string& currentVersion) {
  return {.messageText = fmt::format("Zephyl {} could not be started", failedVersion),
          .informativeText = fmt::format(
              "You are using version {} again, as before the update. Nothing else has changed.",
              currentVersion),
          .buttons = {"OK"}};
}

}  // namespace zephyl::alerts
