#pragma once

#include <string>
#include <string_view>

#include "ZephylTray/Agent/AgentRecords.hpp"

/// The texts about a request that reaches outside a shared folder. A field of the request stays on
/// one line and has its control and blank characters made visible, so that it can neither imitate
/// a line of the tray nor push a part of itself out of sight. A field is cut at 16 KiB, in the
/// notification at 256 bytes, and at most 50 reasons are listed; a mark shows each cut. Pure.
namespace zephyl {

/// What is to be typed before a permanent exception is made.
inline constexpr std::string_view alwaysAllowPhrase = "ALWAYS ALLOW";

/// The requester, such as "Ana — in “Release prep”".
std::string requesterLine(const PendingApproval& approval);

/// The body of the notification.
std::string approvalNotificationText(const PendingApproval& approval);

/// The prompt's text, below its title.
std::string approvalPromptText(const PendingApproval& approval);

/// The text of the confirmation that a permanent exception asks for, below its title.
std::string alwaysAllowText(const PendingApproval& approval);

}  // namespace zephyl
