#include "ZephylTray/Approvals/Alerts.hpp"

#include "ZephylTray/Approvals/ApprovalTexts.hpp"

namespace zephyl::alerts {

namespace {
constexpr int phraseFieldWidth = 300;
constexpr int inviteFieldWidth = 380;
}  // namespace

Alert approval(const PendingApproval& approval, bool requestedByUser) {
  return {.style = Alert::Style::critical,
          .messageText = "Allow access outside the shared folder?",
          .informativeText = approvalPromptText(approval),
          .buttons = {"Deny", "Allow once", "Always allow…"},
          .safeButton = static_cast<std::size_t>(ApprovalButton::deny),
          .permittingButtons = {static_cast<std::size_t>(ApprovalButton::allowOnce),
                                static_cast<std::size_t>(ApprovalButton::alwaysAllow)},
          .requestedByUser = requestedByUser};
}

Alert alwaysAllowConfirmation(const PendingApproval& approval) {
  return {.style = Alert::Style::critical,
          .messageText = "⚠️ Create a permanent exception?",
          .informativeText = alwaysAllowText(approval),
          .buttons = {"Cancel", "Create permanent exception"},
          .safeButton = static_cast<std::size_t>(ConfirmationButton::cancel),
          .textField = Alert::TextField{.placeholder = std::string(alwaysAllowPhrase),
                                        .width = phraseFieldWidth},
          .permittingButtons = {static_cast<std::size_t>(ConfirmationButton::create)},
          .requestedByUser = true};
}

Alert phraseDidNotMatch() {
  return {.messageText = "Confirmation phrase didn't match",
          .informativeText = "No permanent exception was created; the request was denied.",
          .buttons = {"OK"},
          .requestedByUser = true};
}

Alert error(const std::string& description) {
  return {.messageText = "Couldn't update shared folders",
          .informativeText = description,
          .buttons = {"OK"}};
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
