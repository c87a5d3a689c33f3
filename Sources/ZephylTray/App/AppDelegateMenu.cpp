#include <map>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Secret.hpp"
#include "System/Data/URL.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/Actions/ServerAlerts.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"
#include "ZephylTray/Menu/StatusMenu.hpp"

namespace zephyl {

void AppDelegate::wireMenu() {
  statusItem_->setMenuEvents({
      .needsUpdate = weakly([](AppDelegate& self) { self.menuNeedsUpdate(); }),
      .willOpen = weakly([](AppDelegate& self) { self.menuWillOpen(); }),
      .didClose = weakly([](AppDelegate& self) { self.menuDidClose(); }),
      .chosen = weakly([](AppDelegate& self, const MenuAction& action) { self.perform(action); }),
  });
}

void AppDelegate::menuNeedsUpdate() {
  rebuildMenu();
}

void AppDelegate::menuWillOpen() {
  menuIsOpen_ = true;
}

void AppDelegate::menuDidClose() {
  menuIsOpen_ = false;
}

void AppDelegate::updateIcon() {
  statusItem_->setIcon(statusIcon(agentView_));
}

void AppDelegate::updateButtonTitle() {
  statusItem_->setTitle(statusTitle(agentView_));
}

void AppDelegate::updateDescription() {
  if (!polled_) return;
  TailnetSummary summary;
  for (const auto& tailnet : tailnet_->instances()) {
    ++summary.tailnets;
    if (tailnet->isRunning() && tailnet->state().boundAddress) ++summary.usable;
  }
  statusItem_->setDescription(describe(agentView_, summary));
}

/// The menu stays as it is while the user looks at it; the words beside the icon do not.
void AppDelegate::rebuildMenu() {
  lookUpInternalHost();
  updateDescription();
  if (menuIsOpen_) return;
  updateButtonTitle();
  statusItem_->setMenu(statusMenu({.agent = agentView_,
                                   .tailnetProgramsFound = Config::tailnetProgramsInstalled(),
                                   .servers = Servers::all(),
                                   .tailnets = tailnetViews(),
                                   .updates = updateView()}));
}

std::map<std::string, TailnetView, std::less<>> AppDelegate::tailnetViews() const {
  std::map<std::string, TailnetView, std::less<>> views;
  for (const auto& tailnet : tailnet_->instances()) {
    views.emplace(tailnet->server().id, TailnetView{.running = tailnet->isRunning(),
                                                    .state = tailnet->state(),
                                                    .hasLog = tailnet->hasLog()});
  }
  return views;
}

UpdateView AppDelegate::updateView() const {
  if (!Updater::isAvailable()) return {};
  return {.available = true,
          .currentVersion = Updater::currentVersion(),
          .installPostponed = updater_->hasPostponedInstall(),
          .pendingVersion = updater_->pendingVersion(),
          .canCheck = updater_->canCheckForUpdates()};
}

void AppDelegate::perform(const MenuAction& action) {
  const auto* const chosen = action.as<TrayAction>();
  if (chosen == nullptr) return;
  std::visit([this](const auto& each) { choose(each); }, *chosen);
}

void AppDelegate::choose(const menuActions::OpenDesktopWindow&) {
  openDesktopWindow();
}

void AppDelegate::choose(const menuActions::RedeemInvite&) {
  if (DesktopApp::isInstalled()) return openInShell("join");
  promptForInviteKey();
}

void AppDelegate::promptForInviteKey() {
  if (inviteDialog_) return inviteDialog_->bringToFront();
  inviteDialog_ = dialogs_.presentAlert(
      alerts::inviteKey(), weakly([](AppDelegate& self, std::optional<AlertAnswer> answer) {
        using Button = alerts::InviteKeyButton;
        self.inviteDialog_.reset();
        if (!answer || static_cast<Button>(answer->button) != Button::join) return;
        const auto failure = self.redeem(answer->text);
        wipe(answer->text);
        if (!failure) return;
        self.inviteDialog_ = self.dialogs_.presentAlert(
            alerts::inviteKeyFailed(*failure),
            self.weakly([](AppDelegate& told, const auto&) { told.inviteDialog_.reset(); }));
      }));
}

void AppDelegate::choose(const menuActions::OpenServerInBrowser& action) {
  openWebPage(tailnet_->find(action.serverId));
}

void AppDelegate::openInBrowser() {
  openWebPage(tailnet_->primary());
}

void AppDelegate::openWebPage(const std::shared_ptr<TailnetProcess>& tailnet) {
  if (!tailnet) return;
  const auto address = webAddressOf(tailnet->state().boundAddress);
  if (address && URL::parse(*address)) desktop_.openURL(*address);
}

void AppDelegate::choose(const menuActions::ConnectServer& action) {
  const auto failure = setServerEnabled(action.serverId, true);
  if (!failure) return;
  log("could not connect the server {}: {}", action.serverId, *failure);
  connectFailureDialog_ = dialogs_.presentAlert(
      alerts::connectFailed(*failure),
      weakly([](AppDelegate& self, const auto&) { self.connectFailureDialog_.reset(); }));
}

void AppDelegate::choose(const menuActions::RenameServer& action) {
  openInShell("servers/" + action.serverId + "/rename");
}

void AppDelegate::choose(const menuActions::RemoveServer& action) {
  openInShell("servers/" + action.serverId + "/remove");
}

void AppDelegate::choose(const menuActions::ShowTailnetLogs&) {
  presentLogWindow({.title = "Tailnet Logs", .requestedByUser = true}, tailnet_->recentLog());
}

void AppDelegate::choose(const menuActions::RestartTailnet&) {
  for (const auto& tailnet : tailnet_->instances()) tailnet->restart();
}

void AppDelegate::choose(const menuActions::RevokeEscapeGrant& action) {
  revokeEscapeGrant(action.grant);
}

void AppDelegate::choose(const menuActions::ReviewPendingApprovals&) {
  reviewPendingApprovals();
}

void AppDelegate::choose(const menuActions::CheckForUpdates&) {
  updater_->checkForUpdates();
}

void AppDelegate::choose(const menuActions::Quit&) {
  quit();
}

}  // namespace zephyl
