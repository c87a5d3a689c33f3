#include <map>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Secret.hpp"
#include "System/Data/URL.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Approvals/Alerts.hpp"
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
  using Action = void (AppDelegate::*)(const std::string& object);
  static const std::map<std::string_view, Action> actions = {
      {menuActions::reviewPendingApprovals, &AppDelegate::chooseReviewPendingApprovals},
      {menuActions::openDesktopWindow, &AppDelegate::chooseOpenDesktopWindow},
      {menuActions::redeemInvite, &AppDelegate::chooseRedeemInvite},
      {menuActions::openServerInBrowser, &AppDelegate::chooseOpenServerInBrowser},
      {menuActions::connectServer, &AppDelegate::chooseConnectServer},
      {menuActions::renameServer, &AppDelegate::chooseRenameServer},
      {menuActions::removeServer, &AppDelegate::chooseRemoveServer},
      {menuActions::showTailnetLogs, &AppDelegate::chooseTailnetLogs},
      {menuActions::restartTailnet, &AppDelegate::chooseRestartTailnet},
      {menuActions::revokeEscapeGrant, &AppDelegate::chooseRevokeEscapeGrant},
      {menuActions::checkForUpdates, &AppDelegate::chooseCheckForUpdates},
      {menuActions::quit, &AppDelegate::chooseQuit},
  };
  const auto found = actions.find(action.name);
  if (found != actions.end()) (this->*found->second)(action.object);
}

void AppDelegate::chooseOpenDesktopWindow(const std::string&) {
  openDesktopWindow();
}

void AppDelegate::chooseRedeemInvite(const std::string&) {
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

void AppDelegate::chooseOpenServerInBrowser(const std::string& id) {
  openWebPage(tailnet_->find(id));
}

void AppDelegate::openInBrowser() {
  openWebPage(tailnet_->primary());
}

void AppDelegate::openWebPage(const std::shared_ptr<TailnetProcess>& tailnet) {
  if (!tailnet) return;
  const auto address = webAddressOf(tailnet->state().boundAddress);
  if (address && URL::parse(*address)) desktop_.openURL(*address);
}

void AppDelegate::chooseConnectServer(const std::string& id) {
  const auto failure = setServerEnabled(id, true);
  if (!failure) return;
  log("could not connect the server {}: {}", id, *failure);
  connectFailureDialog_ = dialogs_.presentAlert(
      alerts::connectFailed(*failure),
      weakly([](AppDelegate& self, const auto&) { self.connectFailureDialog_.reset(); }));
}

void AppDelegate::chooseRenameServer(const std::string& id) {
  openInShell("servers/" + id + "/rename");
}

void AppDelegate::chooseRemoveServer(const std::string& id) {
  openInShell("servers/" + id + "/remove");
}

void AppDelegate::chooseTailnetLogs(const std::string&) {
  presentLogWindow({.title = "Tailnet Logs", .requestedByUser = true}, tailnet_->recentLog());
}

void AppDelegate::chooseRestartTailnet(const std::string&) {
  for (const auto& tailnet : tailnet_->instances()) tailnet->restart();
}

void AppDelegate::chooseRevokeEscapeGrant(const std::string& object) {
  if (const auto grant = json::decodeText<EscapeGrant>(object)) revokeEscapeGrant(*grant);
}

void AppDelegate::chooseReviewPendingApprovals(const std::string&) {
  reviewPendingApprovals();
}

void AppDelegate::chooseCheckForUpdates(const std::string&) {
  updater_->checkForUpdates();
}

void AppDelegate::chooseQuit(const std::string&) {
  quit();
}

}  // namespace zephyl
