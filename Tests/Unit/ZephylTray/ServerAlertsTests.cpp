#include "ZephylTray/Actions/ServerAlerts.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(ServerAlerts, AnInviteKeyPromptJoinsByDefaultAndIsCancelledByEscape) {
  const auto alert = alerts::inviteKey();
  EXPECT_EQ(alert.heading, "Join the Zephyl Tailnet");
  EXPECT_EQ(alert.explanation,
            "Paste the invite key you were sent. It looks like:\n\n  inv_v2_<fingerprint>_<key>\n\n"
            "The key can only be used once and expires after 24 hours.");
  EXPECT_EQ(alert.buttons, (std::vector<std::string>{"Join", "Cancel"}));
  EXPECT_EQ(alert.safeButton, 1U);
  EXPECT_EQ(alert.textField, (Alert::TextField{.placeholder = "inv_v2_…", .width = 380}));
}

TEST(ServerAlerts, AFailedInviteKeyHasAReason) {
  EXPECT_EQ(alerts::inviteKeyFailed("It has expired."),
            (Alert{.style = Alert::Style::warning,
                   .heading = "That invite key didn't work",
                   .explanation = "It has expired.",
                   .buttons = {"OK"},
                   .requestedByUser = true}));
}

}  // namespace
}  // namespace zephyl
