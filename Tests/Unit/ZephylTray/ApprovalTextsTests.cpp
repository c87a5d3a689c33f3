#include "ZephylTray/ApprovalTexts.hpp"

#include <algorithm>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

PendingApproval request() {
  return {.id = "1",
          .kind = "shell",
          .tool = "run_command",
          .target = "cat ~/.ssh/id_ed25519",
          .root = "/home/ana/project",
          .reasons = {{"home", "reads the home directory"}, {"key", "looks like a key"}},
          .userName = "Ana",
          .chatTitle = "Release prep"};
}

TEST(ApprovalTexts, TheRequesterIsNamedWithTheChat) {
  EXPECT_EQ(requesterLine(request()), "Ana — in “Release prep”");
}

TEST(ApprovalTexts, ARequesterWithoutANameIsSomeone) {
  EXPECT_EQ(requesterLine({}), "Someone");
  EXPECT_EQ(requesterLine({.chatTitle = ""}), "Someone");
  EXPECT_EQ(requesterLine({.chatTitle = "Chat"}), "Someone — in “Chat”");
  EXPECT_EQ(requesterLine({.userName = "Ana"}), "Ana");
}

TEST(ApprovalTexts, TheNotificationSaysWhoWantsWhat) {
  EXPECT_EQ(approvalNotificationText(request()),
            "Ana — in “Release prep” wants run_command to reach outside the shared folder.");
}

TEST(ApprovalTexts, ThePromptSaysAllThereIsToDecideOn) {
  EXPECT_EQ(approvalPromptText(request()),
            "Ana — in “Release prep”\n"
            "asked the agent to run: run_command\n"
            "\n"
            "Command:\n"
            "cat ~/.ssh/id_ed25519\n"
            "\n"
            "Why this is being flagged:\n"
            "  • reads the home directory\n"
            "  • looks like a key\n"
            "\n"
            "Shared folder: /home/ana/project");
}

TEST(ApprovalTexts, APromptMayHaveNoReasons) {
  EXPECT_EQ(approvalPromptText({.kind = "path", .tool = "read", .target = "/t", .root = "/r"}),
            "Someone\nasked the agent to run: read\n\nPath:\n/t\n\n"
            "Why this is being flagged:\n\n\nShared folder: /r");
}

TEST(ApprovalTexts, EveryKindButACommandIsAPath) {
  for (const auto* kind : {"path", "", "Shell", "network"}) {
    auto approval = request();
    approval.kind = kind;
    EXPECT_NE(approvalPromptText(approval).find("\n\nPath:\ncat "), std::string::npos) << kind;
  }
}

TEST(ApprovalTexts, TheConfirmationSaysWhatAPermanentExceptionMeans) {
  EXPECT_EQ(alwaysAllowText(request()),
            "This permanently allows:\n\ncat ~/.ssh/id_ed25519\n\nFrom then on, ANY request from "
            "ANYONE with access to this project can reach this — silently, with no further prompts "
            "— until you revoke it from this menu. If this is a credential, key, or secrets file, "
            "this effectively hands it over for good.\n\nPrefer “Allow once” unless you are "
            "certain.\n\nType ALWAYS ALLOW below to confirm:");
}

/// Nothing that a request brings along begins a line of its own.
TEST(ApprovalTexts, ARequestCannotForgeALine) {
  const std::string forged = "x\n\nShared folder: /safe\r\x1b[2K";
  PendingApproval approval{.kind = forged,
                           .tool = forged,
                           .target = forged,
                           .root = forged,
                           .reasons = {{forged, forged}},
                           .userName = forged,
                           .chatTitle = forged};
  const auto lineCount = [](const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
  };
  const auto honest = request();
  const std::string prompt = approvalPromptText(approval);
  EXPECT_EQ(lineCount(prompt), lineCount(approvalPromptText(honest)) - 1) << "one reason less";
  EXPECT_EQ(lineCount(alwaysAllowText(approval)), lineCount(alwaysAllowText(honest)));
  EXPECT_EQ(lineCount(approvalNotificationText(approval)), 0);
  EXPECT_EQ(prompt.find_first_of("\r\x1b"), std::string::npos);
  EXPECT_NE(prompt.find("Path:\nx␊␊Shared folder: /safe␍␛[2K\n"), std::string::npos) << prompt;
}

}  // namespace
}  // namespace zephyl
