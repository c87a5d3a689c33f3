#pragma once

#include <string>

#include "Desktop/Dialogs.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"

/// The alerts that the tray shows, as values; what their buttons mean stands beside them. Pure.
namespace zephyl::alerts {

/// Asks for the decision about a request that reaches outside a shared folder.
Alert approval(const PendingApproval& approval, bool requestedByUser);
enum class ApprovalButton : std::size_t { deny, allowOnce, alwaysAllow };

/// Asks for the phrase before a permanent exception is made.
Alert alwaysAllowConfirmation(const PendingApproval& approval);
enum class ConfirmationButton : std::size_t { cancel, create };

/// What was typed there was not the phrase.
Alert phraseDidNotMatch();

/// Something that the user asked of the agent has failed.
Alert error(const std::string& description);

}  // namespace zephyl::alerts
