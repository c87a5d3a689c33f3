#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Client/Updater.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/Actions/DesktopApp.hpp"
#include "ZephylTray/Agent/ActivityStream.hpp"
#include "ZephylTray/Agent/AgentClient.hpp"
#include "ZephylTray/Agent/AgentPeer.hpp"
#include "ZephylTray/Agent/AgentProcess.hpp"
#include "ZephylTray/Control/ControlServer.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"
#include "ZephylTray/Menu/StatusDescription.hpp"
#include "ZephylTray/Menu/StatusMenu.hpp"
#include "ZephylTray/Tailnet/TailnetManager.hpp"

namespace zephyl {

/// The tray controller: owns every long-lived component, starts them in a fixed order, keeps the
/// agent's state fresh by polling and by following its event stream, and stops the children when
/// the program ends. It holds no logic of theirs.
///
/// Main thread only. Created by `main` and held by it for the life of the process; every closure
/// given to a component holds it weakly and does nothing once it is gone.
///
/// The agent's state: unreachable at first (`status` and `activity` none, `roots` empty);
/// reachable by a poll in which status and roots both succeed; unreachable again by the first
/// poll in which either fails. A program that answers but belongs to another user is not the agent.
/// A poll never starts or restarts the agent: the tray launches one only when nothing answered its
/// first poll.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
 public:
  static constexpr Duration pollInterval = std::chrono::seconds(2);

  /// What `runtime` refers to, `desktop` and `dialogs` outlive it. `updates` makes the framework
  /// that keeps this program up to date; without one it is not.
  AppDelegate(const Runtime& runtime, Desktop& desktop, Dialogs& dialogs,
              UpdaterFactory updates = nullptr);

  /// Starts everything, in order. Returns at once; what takes time goes on in tasks.
  void applicationDidFinishLaunching();
  /// Stops everything, in order, and waits for the children: a few seconds at most.
  void applicationWillTerminate();
  /// The user has started the running program again: shows where to go on.
  void applicationShouldHandleReopen();
  /// Ends the program, in order.
  void quit();
  /// What the program ends with: a failure when it could not go on.
  [[nodiscard]] int exitStatus() const { return exitStatus_; }

  /// What the user does with the menu, which stays as it is while it is open.
  void menuNeedsUpdate();
  void menuWillOpen();
  void menuDidClose();

  /// Polls the agent, then brings what is shown up to date.
  void refresh();
  /// Joins a server with the invite key that the user pasted: registers the server, starts its
  /// tailnet in enrolment mode and restarts the agent. Returns what to tell the user when the key
  /// cannot be read, and changes nothing then. Whether the server accepts the key shows later, in
  /// its tailnet's state. A server that cannot be saved is not joined, and its key stays unused.
  std::optional<std::string> redeem(const std::string& key);
  /// Changes of one server. Each returns what to tell the user when there is no such server or the
  /// change cannot be saved, and then changes nothing.
  std::optional<std::string> setServerLabel(const std::string& id, const std::string& label);
  std::optional<std::string> setServerAccent(const std::string& id, const std::string& accent);
  std::optional<std::string> setServerEnabled(const std::string& id, bool enabled);
  void removeServer(const std::string& id, const ControlServer::Completion& done);

  /// Shows the desktop app at its start page, or at a screen of it such as "servers".
  void openDesktopWindow();
  void openInShell(const std::string& screen);
  /// Shows the web page of the server that comes first.
  void openInBrowser();
  /// Whether there is no server yet that could be used.
  [[nodiscard]] static bool needsOnboarding();

  /// Follows the agent's event stream, afresh when it is being followed already.
  void startActivityStream();

  [[nodiscard]] const AgentSnapshot& agentView() const { return agentView_; }

 private:
  /// What one successful poll brought. `activity` is none when only that request failed.
  struct Poll {
    AgentStatus status;
    std::vector<SharedRoot> roots;
    std::optional<Activity> activity;
  };

  // Start-up and shutdown (AppDelegate.cpp)
  void wireDesktop();
  void wireAgent();
  void wireTailnets();
  void wireUpdater();
  void launchAgentUnlessOneAnswers();
  void startPolling();
  bool startControlServer();

  // Following the agent (AppDelegatePolling.cpp)
  void pollOnce(Task done);
  void apply(std::optional<Poll> poll);
  void receive(Activity activity);
  void noteBusy();

  // What is shown, and what the user chooses there (AppDelegateMenu.cpp)
  void wireMenu();
  void updateIcon();
  void updateButtonTitle();
  /// Tells the state in words, as soon as it is known.
  void updateDescription();
  /// Brings all that is shown up to date.
  void rebuildMenu();
  [[nodiscard]] UpdateView updateView() const;
  [[nodiscard]] std::map<std::string, TailnetView, std::less<>> tailnetViews() const;
  void perform(const MenuAction& action);
  void choose(const menuActions::OpenDesktopWindow& action);
  void choose(const menuActions::RedeemInvite& action);
  void choose(const menuActions::OpenServerInBrowser& action);
  void choose(const menuActions::ConnectServer& action);
  void choose(const menuActions::RenameServer& action);
  void choose(const menuActions::RemoveServer& action);
  void choose(const menuActions::ShowTailnetLogs& action);
  void choose(const menuActions::RestartTailnet& action);
  void choose(const menuActions::RevokeEscapeGrant& action);
  void choose(const menuActions::CheckForUpdates& action);
  void choose(const menuActions::ReviewPendingApprovals& action);
  void choose(const menuActions::Quit& action);
  void promptForInviteKey();
  void openWebPage(const std::shared_ptr<TailnetProcess>& tailnet);

  // Requests that reach outside a shared folder (AppDelegateApprovals.cpp)
  using ApprovalAnswer = std::function<void(AppDelegate&, const AlertAnswer&)>;
  void processPendingApprovals(const std::vector<PendingApproval>& pending);
  void withdrawPromptUnlessPending(const std::vector<PendingApproval>& pending);
  void notify(const PendingApproval& approval);
  void presentApproval(const PendingApproval& approval, bool requestedByUser);
  void promptAlwaysAllowConfirmation(const PendingApproval& approval);
  void askAboutApproval(const Alert& alert, ApprovalAnswer answered);
  void decideApproval(const std::string& id, const std::string& decision);
  /// A request has been dealt with: the next one, if there is one.
  void goOnWithApprovals();
  void reviewPendingApprovals();
  void reviewNotified(const std::string& id);
  void reviewApproval(const PendingApproval& approval);
  /// Brings what is on screen about a request to the front. Returns whether a request is being
  /// decided.
  bool showCurrentApproval();
  void revokeEscapeGrant(const EscapeGrant& grant);
  /// `acknowledged` runs when the error is off the screen, however it went.
  void showError(const std::string& description, Task acknowledged = {});

  // Log windows (AppDelegateLogs.cpp)
  void presentLogWindow(LogWindow window, const std::vector<std::string>& log);
  void handle(LogWindowEvent event);
  void openLogIn(Editor editor);
  [[nodiscard]] std::optional<std::string> writeLogToTempFile() const;

  /// Brings tailnets, agent and menu in step with the registry (AppDelegateServers.cpp).
  std::optional<std::string> removeStoppedServer(const std::string& id);
  void serversChanged();

  // The desktop app, and where servers' web pages are (AppDelegateDesktop.cpp)
  [[nodiscard]] DesktopLaunch desktopLaunch() const;
  /// nullopt while the control server does not listen.
  [[nodiscard]] std::optional<ControlAccess> controlAccess() const;
  void announceUnresolvedTarget(const ServerEntry& server);
  /// Starts the look-up of the internal host name, once per run, when there is a tailnet. Its
  /// answer is final for the run.
  void lookUpInternalHost();
  [[nodiscard]] std::optional<std::string> webAddressOf(
      const std::optional<std::string>& boundAddress) const;

  // What the control API is answered with (AppDelegateControl.cpp)
  void installControlHandlers();
  void installFolderHandlers();
  void completeWhenRetired(ControlServer::Failure failure, const ControlServer::Completion& done);
  [[nodiscard]] json::Object controlStatus() const;
  [[nodiscard]] std::vector<json::Object> controlServers() const;
  [[nodiscard]] json::Object diagnostics() const;

  // Folders, as the desktop app shares them (AppDelegateFolders.cpp)
  using Failure = ControlServer::Failure;
  using Completion = ControlServer::Completion;
  using FolderAnswer = std::function<void(const Result<std::optional<std::string>>&)>;
  void shellAddRoot(const std::string& id, const Completion& done);
  void pickFolder(const std::string& prompt, const std::string& message, FolderAnswer done);
  void shellSetRootShared(const std::string& id, const std::string& root, bool shared,
                          const Completion& done);
  /// Wraps the end of a change of the shared folders: shows them afresh, then reports.
  AgentClient::Completion<std::vector<SharedRoot>> foldersChanged(const Completion& done);

  /// Wraps work so that it runs only while the controller exists.
  template <typename Work>
  auto weakly(Work work) {
    return [weak = weak_from_this(), work = std::move(work)](auto&&... values) {
      if (const auto self = weak.lock()) work(*self, std::forward<decltype(values)>(values)...);
    };
  }

  Runtime runtime_;
  Desktop& desktop_;
  Dialogs& dialogs_;
  StatusItem* statusItem_ = nullptr;
  const std::int64_t agentPort_;  // of this run, whatever the settings say later
  const std::shared_ptr<AgentPeer> agentPeer_ = std::make_shared<AgentPeer>();
  AgentClient client_;
  std::shared_ptr<AgentProcess> agent_;
  std::shared_ptr<TailnetManager> tailnet_;
  Timer pollTimer_;
  AgentSnapshot agentView_;
  bool polled_ = false;  // once: until then the state is not known
  std::optional<ActivityStream> sseTask_;
  // Shared with the updater, which asks from any thread.
  std::shared_ptr<std::atomic<bool>> agentIsBusy_ = std::make_shared<std::atomic<bool>>(false);
  bool menuIsOpen_ = false;
  std::set<std::string> seenApprovalIds_;
  bool presentingApproval_ = false;  // a request is being decided: prompt, confirmation, sending
  std::string promptedApprovalId_;
  Dialogs::Handle approvalDialog_;
  Dialogs::Handle errorDialog_;
  Task errorAcknowledged_;
  Dialogs::Handle inviteDialog_;
  Dialogs::Handle connectFailureDialog_;
  std::list<Dialogs::Handle> folderDialogs_;
  Dialogs::Handle logWindow_;
  std::string currentLogText_;  // the whole of the log shown last
  std::set<std::string> unresolvedAnnounced_;
  bool internalHostLookedUp_ = false;
  bool zephylInternalResolves_ = false;
  int exitStatus_ = 0;
  std::shared_ptr<DesktopApp> desktopApp_;
  std::shared_ptr<Updater> updater_;
  // Last, so that it goes first: its thread asks all of the above.
  ControlServer control_;
};

}  // namespace zephyl
