#include "ZephylTray/Approvals/ApprovalTexts.hpp"

#include <algorithm>
#include <vector>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::size_t maxFieldBytes = 16UL * 1024;
constexpr std::size_t maxNotifiedFieldBytes = 256;
constexpr std::size_t maxReasons = 50;

/// Returns a field of the request in its displayed form.
std::string shown(std::string_view field, std::size_t maxBytes = maxFieldBytes) {
  return visibleWithBlanks(shortened(field, maxBytes));
}

std::string reasonLines(const std::vector<EscapeReason>& reasons) {
  std::vector<std::string> lines;
  const auto count = std::min(reasons.size(), maxReasons);
  lines.reserve(count + 1);
  for (std::size_t i = 0; i < count; ++i) lines.push_back("  • " + shown(reasons[i].detail));
  if (reasons.size() > count) {
    lines.push_back(formatText("  … and {} more", reasons.size() - count));
  }
  return joined(lines, "\n");
}

std::string boundedRequester(const PendingApproval& approval, std::size_t maxBytes) {
  std::string line = shown(approval.userName.value_or("Someone"), maxBytes);
  if (approval.chatTitle && !approval.chatTitle->empty()) {
    line += " — in “" + shown(*approval.chatTitle, maxBytes) + "”";
  }
  return line;
}

}  // namespace

std::string requesterLine(const PendingApproval& approval) {
  return boundedRequester(approval, maxFieldBytes);
}

std::string approvalNotificationText(const PendingApproval& approval) {
  return boundedRequester(approval, maxNotifiedFieldBytes) + " wants " +
         shown(approval.tool, maxNotifiedFieldBytes) + " to reach outside the shared folder.";
}

std::string approvalPromptText(const PendingApproval& approval) {
  return formatText(
      "{}\nasked the agent to run: {}"
      "\n\n{}:\n{}"
      "\n\nWhy this is being flagged:\n{}"
      "\n\nShared folder: {}",
      requesterLine(approval), shown(approval.tool), approval.kind == "shell" ? "Command" : "Path",
      shown(approval.target), reasonLines(approval.reasons), shown(approval.root));
}

std::string alwaysAllowText(const PendingApproval& approval) {
  return formatText(
      "This permanently allows:\n\n{}"
      "\n\nFrom then on, ANY request from ANYONE with access to this project can reach this — "
      "silently, with no further prompts — until you revoke it from this menu. If this is a "
      "credential, key, or secrets file, this effectively hands it over for good."
      "\n\nPrefer “Allow once” unless you are certain."
      "\n\nType {} below to confirm:",
      shown(approval.target), alwaysAllowPhrase);
}

}  // namespace zephyl
