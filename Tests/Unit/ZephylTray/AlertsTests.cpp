#include "ZephylTray/Approvals/Alerts.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Buttons = std::vector<std::string>;

PendingApproval sampleRequest() {
  return {.id = "a",
          .kind = "path",
          .tool = "read_file",
          .target = "/etc/passwd",
          .root = "/home/ana/project",
          .reasons = {{.code = "outside", .detail = "It is outside the folder"}},
          .userName = "Ana",
          .createdAt = 1};
}

TEST(Alerts, DenyIsTheDefaultOfAnApproval) {
  EXPECT_EQ(alerts::approval(sampleRequest(), /*requestedByUser=*/false),
            (Alert{.style = Alert::Style::critical,
                   .heading = "Allow access outside the shared folder?",
                   .explanation = "Ana\nasked the agent to run: read_file"
                                  "\n\nPath:\n/etc/passwd"
                                  "\n\nWhy this is being flagged:\n  • It is outside the folder"
                                  "\n\nShared folder: /home/ana/project",
                   .buttons = {"Deny", "Allow once", "Always allow…"},
                   .safeButton = 0,
                   .permittingButtons = {1, 2}}));
  EXPECT_TRUE(alerts::approval(sampleRequest(), /*requestedByUser=*/true).requestedByUser);
}

TEST(Alerts, APermanentExceptionAsksForThePhrase) {
  const auto alert = alerts::alwaysAllowConfirmation(sampleRequest());
  EXPECT_EQ(alert.style, Alert::Style::critical);
  EXPECT_EQ(alert.heading, "⚠️ Create a permanent exception?");
  EXPECT_EQ(alert.buttons, (Buttons{"Cancel", "Create permanent exception"}));
  EXPECT_EQ(alert.safeButton, 0U);
  EXPECT_EQ(alert.textField, (Alert::TextField{.placeholder = "ALWAYS ALLOW", .width = 300}));
  EXPECT_EQ(alert.permittingButtons, std::vector<std::size_t>{1});
  EXPECT_TRUE(alert.requestedByUser);
}

TEST(Alerts, AWrongPhraseIsAWarning) {
  EXPECT_EQ(alerts::phraseDidNotMatch(),
            (Alert{.style = Alert::Style::warning,
                   .heading = "Confirmation phrase didn't match",
                   .explanation = "No permanent exception was created; the request was denied.",
                   .buttons = {"OK"},
                   .requestedByUser = true}));
}

TEST(Alerts, AnErrorContainsItsMessage) {
  EXPECT_EQ(alerts::error("too late"), (Alert{.style = Alert::Style::warning,
                                              .heading = "Couldn't update shared folders",
                                              .explanation = "too late",
                                              .buttons = {"OK"}}));
}

}  // namespace
}  // namespace zephyl
