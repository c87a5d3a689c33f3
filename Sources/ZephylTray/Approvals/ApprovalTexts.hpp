#pragma once

#include <string>
#include <string_view>

#include "ZephylTray/Agent/AgentRecords.hpp"

/// The texts about a request that reaches outside a shared folder. Each field of the request stays
/// on one line, with its control and blank characters made visible, so that it can neither imitate
/// a line of the tray nor hide a part of itself. Fields are cut at 16 KiB, in the notification at
/// 256 bytes, and at most 50 reasons are listed. A mark shows each cut. Pure.
namespace zephyl {

/// The phrase that the user must type to create a permanent exception.
inline constexpr std::string_view alwaysAllowPhrase = "ALWAYS ALLOW";

/// Returns the requester, such as "Ana — in “Release prep”".
std::string requesterLine(const PendingApproval& approval);

/// Returns the body of the notification.
std::string approvalNotificationText(const PendingApproval& approval);

/// Returns the prompt's text, below its title.
std::string approvalPromptText(const PendingApproval& approval);

/// Returns the text of the confirmation of a permanent exception, below its title.
std::string alwaysAllowText(const PendingApproval& approval);

}  // namespace zephyl
