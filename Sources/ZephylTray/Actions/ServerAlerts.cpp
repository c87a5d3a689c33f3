#include "ZephylTray/Actions/ServerAlerts.hpp"

namespace zephyl::alerts {

namespace {
constexpr int inviteFieldWidth = 380;
}

Alert inviteKey() {
  return {.style = Alert::Style::question,
          .heading = "Join the Zephyl Tailnet",
          .explanation =
              "Paste the invite key you were sent. It looks like:\n\n"
              "  inv_v2_<fingerprint>_<key>\n\n"
              "The key can only be used once and expires after 24 hours.",
          .buttons = {"Join", "Cancel"},
          .safeButton = static_cast<std::size_t>(InviteKeyButton::cancel),
          .textField = Alert::TextField{.placeholder = "inv_v2_…", .width = inviteFieldWidth},
          .requestedByUser = true};
}

Alert inviteKeyFailed(const std::string& message) {
  return {.heading = "That invite key didn't work",
          .explanation = message,
          .buttons = {"OK"},
          .requestedByUser = true};
}

Alert connectFailed(const std::string& message) {
  return {.heading = "The server couldn't be connected", .explanation = message, .buttons = {"OK"}};
}

}  // namespace zephyl::alerts
