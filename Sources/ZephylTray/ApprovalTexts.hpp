#pragma once

#include <string>
#include <string_view>

#include "ZephylTray/AgentRecords.hpp"

/// What the user is told about a request that reaches outside a shared folder. Whatever the request
/// brings along stays on one line and has its control characters made visible, so that it cannot
/// look like a line of the tray's own. Pure.
namespace zephyl {

/// What is to be typed before a permanent exception is made.
inline constexpr std::string_view alwaysAllowPhrase = "ALWAYS ALLOW";

/// Who asks, such as "Ana — in “Release prep”".
std::string requesterLine(const PendingApproval& approval);

/// The body of the notification.
std::string approvalNotificationText(const PendingApproval& approval);

/// The prompt's text, below its title.
std::string approvalPromptText(const PendingApproval& approval);

/// The text of the confirmation that a permanent exception asks for, below its title.
std::string alwaysAllowText(const PendingApproval& approval);

}  // namespace zephyl
