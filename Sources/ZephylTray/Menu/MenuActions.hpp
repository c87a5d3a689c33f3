#pragma once

#include <string_view>

/// What the menu's rows ask for: the values of `MenuAction::name`, and for each what
/// `MenuAction::object` holds. Without a word about it, it is empty.
namespace zephyl::menuActions {

inline constexpr std::string_view reviewPendingApprovals = "reviewPendingApprovals";
inline constexpr std::string_view openDesktopWindow = "openDesktopWindow";
inline constexpr std::string_view redeemInvite = "redeemInvite";
inline constexpr std::string_view openServerInBrowser = "openServerInBrowser";  ///< server id
inline constexpr std::string_view connectServer = "connectServer";              ///< server id
inline constexpr std::string_view renameServer = "renameServer";                ///< server id
inline constexpr std::string_view removeServer = "removeServer";                ///< server id
inline constexpr std::string_view showTailnetLogs = "showTailnetLogs";
inline constexpr std::string_view restartTailnet = "restartTailnet";
inline constexpr std::string_view revokeEscapeGrant = "revokeEscapeGrant";  ///< `EscapeGrant`, JSON
inline constexpr std::string_view checkForUpdates = "checkForUpdates";
inline constexpr std::string_view quit = "quit";

}  // namespace zephyl::menuActions
