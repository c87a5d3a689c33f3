#include "ZephylTray/Actions/ServerAlerts.hpp"

namespace zephyl::alerts {

namespace {
constexpr int inviteFieldWidth = 380;
}

Alert inviteKey() {
  return {.style = Alert::Style::question,
          .messageText = "Join the Zephyl Tailnet",
          .informativeText =
              "Paste the invite key you were sent. It looks like:\n\n"
              "  inv_v2_<fingerprint>_<key>\n\n"
              "The key can only be used once and expires after 24 hours.",
          .buttons = {"Join", "Cancel"},
          .safeButton = static_cast<std::size_t>(InviteKeyButton::cancel),
          .textField = Alert::TextField{.placeholder = "inv_v2_…", .width = inviteFieldWidth},
          .requestedByUser = true};
}

Alert inviteKeyFailed(const std::string& message) {
  return {.messageText = "That invite key didn't work",
          .informativeText = message,
          .buttons = {"OK"},
          .requestedByUser = true};
}

Alert connectFailed(const std::string& message) {
  return {.messageText = "The server couldn't be connected",
          .informativeText = message,
          .buttons = {"OK"}};
}

}  // namespace zephyl::alerts
