#include "ZephylTray/ApprovalTexts.hpp"

#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "System/Text.hpp"

namespace zephyl {

namespace {

std::string reasonLines(const std::vector<EscapeReason>& reasons) {
  std::vector<std::string> lines;
  lines.reserve(reasons.size());
  for (const auto& reason : reasons) lines.push_back("  • " + visible(reason.detail));
  return fmt::format("{}", fmt::join(lines, "\n"));
}

}  // namespace

std::string requesterLine(const PendingApproval& approval) {
  std::string line = visible(approval.userName.value_or("Someone"));
  if (approval.chatTitle && !approval.chatTitle->empty()) {
    line += " — in “" + visible(*approval.chatTitle) + "”";
  }
  return line;
}

std::string approvalNotificationText(const PendingApproval& approval) {
  return requesterLine(approval) + " wants " + visible(approval.tool) +
         " to reach outside the shared folder.";
}

std::string approvalPromptText(const PendingApproval& approval) {
  return fmt::format(
      "{}\nasked the agent to run: {}"
      "\n\n{}:\n{}"
      "\n\nWhy this is being flagged:\n{}"
      "\n\nShared folder: {}",
      requesterLine(approval), visible(approval.tool),
      approval.kind == "shell" ? "Command" : "Path", visible(approval.target),
      reasonLines(approval.reasons), visible(approval.root));
}

std::string alwaysAllowText(const PendingApproval& approval) {
  return fmt::format(
      "This permanently allows:\n\n{}"
      "\n\nFrom then on, ANY request from ANYONE with access to this project can reach this — "
      "silently, with no further prompts — until you revoke it from this menu. If this is a "
      "credential, key, or secrets file, this effectively hands it over for good."
      "\n\nPrefer “Allow once” unless you are certain."
      "\n\nType {} below to confirm:",
      visible(approval.target), alwaysAllowPhrase);
}

}  // namespace zephyl
