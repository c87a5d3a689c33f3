#include "ZephylTray/Approvals/Alerts.hpp"

#include "ZephylTray/Approvals/ApprovalTexts.hpp"

namespace zephyl::alerts {

namespace {
constexpr int phraseFieldWidth = 300;
}  // namespace

Alert approval(const PendingApproval& approval, bool requestedByUser) {
  return {.style = Alert::Style::critical,
          .heading = "Allow access outside the shared folder?",
          .explanation = approvalPromptText(approval),
          .buttons = {"Deny", "Allow once", "Always allow…"},
          .safeButton = static_cast<std::size_t>(ApprovalButton::deny),
          .permittingButtons = {static_cast<std::size_t>(ApprovalButton::allowOnce),
                                static_cast<std::size_t>(ApprovalButton::alwaysAllow)},
          .requestedByUser = requestedByUser};
}

Alert alwaysAllowConfirmation(const PendingApproval& approval) {
  return {.style = Alert::Style::critical,
          .heading = "⚠️ Create a permanent exception?",
          .explanation = alwaysAllowText(approval),
          .buttons = {"Cancel", "Create permanent exception"},
          .safeButton = static_cast<std::size_t>(ConfirmationButton::cancel),
          .textField = Alert::TextField{.placeholder = std::string(alwaysAllowPhrase),
                                        .width = phraseFieldWidth},
          .permittingButtons = {static_cast<std::size_t>(ConfirmationButton::create)},
          .requestedByUser = true};
}

Alert phraseDidNotMatch() {
  return {.heading = "Confirmation phrase didn't match",
          .explanation = "No permanent exception was created; the request was denied.",
          .buttons = {"OK"},
          .requestedByUser = true};
}

Alert error(const std::string& description) {
  return {
      .heading = "Couldn't update shared folders", .explanation = description, .buttons = {"OK"}};
}

}  // namespace zephyl::alerts
