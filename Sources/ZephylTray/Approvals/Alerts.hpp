#pragma once

#include <string>

#include "Desktop/Dialogs.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"

/// The alerts about approvals, as values, with the meaning of their buttons. Pure.
namespace zephyl::alerts {

/// Returns the prompt about a request that reaches outside a shared folder.
Alert approval(const PendingApproval& approval, bool requestedByUser);
enum class ApprovalButton : std::size_t { deny, allowOnce, alwaysAllow };

/// Returns the confirmation, with a phrase to type, before a permanent exception is created.
Alert alwaysAllowConfirmation(const PendingApproval& approval);
enum class ConfirmationButton : std::size_t { cancel, create };

/// Returns the alert that the typed text was not the phrase.
Alert phraseDidNotMatch();

/// Returns the alert that the agent refused a request of the user.
Alert error(const std::string& description);

}  // namespace zephyl::alerts
