#pragma once

#include <string>
#include <variant>

#include "ZephylTray/Agent/AgentRecords.hpp"

namespace zephyl {

/// The actions of the rows in the status item's menu: one type each, with the data that it needs.
namespace menuActions {

/// Base of actions without data.
struct Plain {
  bool operator==(const Plain&) const = default;
};
struct ReviewPendingApprovals : Plain {};
struct OpenDesktopWindow : Plain {};
struct RedeemInvite : Plain {};
struct ShowTailnetLogs : Plain {};
struct RestartTailnet : Plain {};
struct CheckForUpdates : Plain {};
struct Quit : Plain {};

/// Base of actions on one server.
struct OnServer {
  explicit OnServer(std::string id) : serverId(std::move(id)) {}
  std::string serverId;
  bool operator==(const OnServer&) const = default;
};
struct OpenServerInBrowser : OnServer {
  using OnServer::OnServer;
};
struct ConnectServer : OnServer {
  using OnServer::OnServer;
};
struct RenameServer : OnServer {
  using OnServer::OnServer;
};
struct RemoveServer : OnServer {
  using OnServer::OnServer;
};

struct RevokeEscapeGrant {
  EscapeGrant grant;
  bool operator==(const RevokeEscapeGrant&) const = default;
};

}  // namespace menuActions

/// The value of every `MenuAction` in the status item's menu.
using TrayAction =
    std::variant<menuActions::ReviewPendingApprovals, menuActions::OpenDesktopWindow,
                 menuActions::RedeemInvite, menuActions::OpenServerInBrowser,
                 menuActions::ConnectServer, menuActions::RenameServer, menuActions::RemoveServer,
                 menuActions::ShowTailnetLogs, menuActions::RestartTailnet,
                 menuActions::RevokeEscapeGrant, menuActions::CheckForUpdates, menuActions::Quit>;

}  // namespace zephyl
