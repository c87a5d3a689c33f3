#include <algorithm>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Approvals/Alerts.hpp"
#include "ZephylTray/Approvals/ApprovalTexts.hpp"

namespace zephyl {

namespace {

bool isPending(const std::vector<PendingApproval>& pending, const std::string& id) {
  return std::ranges::find(pending, id, &PendingApproval::id) != pending.end();
}

}  // namespace

void AppDelegate::processPendingApprovals(const std::vector<PendingApproval>& pending) {
  std::erase_if(seenApprovalIds_, [&](const std::string& id) {
    if (isPending(pending, id)) return false;
    desktop_.removeNotification(id);
    return true;
  });
  withdrawPromptUnlessPending(pending);
  if (presentingApproval_) return;
  const auto unseen = std::ranges::find_if(
      pending, [this](const auto& approval) { return !seenApprovalIds_.contains(approval.id); });
  if (unseen == pending.end()) return;
  seenApprovalIds_.insert(unseen->id);
  notify(*unseen);
  presentApproval(*unseen, /*requestedByUser=*/false);
}

/// A request that was answered elsewhere, or given up, is not asked about any longer.
void AppDelegate::withdrawPromptUnlessPending(const std::vector<PendingApproval>& pending) {
  if (!approvalDialog_ || isPending(pending, promptedApprovalId_)) return;
  approvalDialog_.reset();
  presentingApproval_ = false;
}

void AppDelegate::notify(const PendingApproval& approval) {
  if (!Bundle::main().identifier()) return;
  desktop_.postNotification({.identifier = approval.id,
                             .title = "Zephyl: approval needed",
                             .body = approvalNotificationText(approval),
                             .actionTitle = "Review…"});
}

void AppDelegate::presentApproval(const PendingApproval& approval, bool requestedByUser) {
  using Button = alerts::ApprovalButton;
  presentingApproval_ = true;
  promptedApprovalId_ = approval.id;
  askAboutApproval(alerts::approval(approval, requestedByUser),
                   [approval](AppDelegate& self, const AlertAnswer& answer) {
                     switch (static_cast<Button>(answer.button)) {
                       case Button::allowOnce:
                         return self.decideApproval(approval.id, "approve");
                       case Button::alwaysAllow:
                         return self.promptAlwaysAllowConfirmation(approval);
                       default:
                         return self.decideApproval(approval.id, "deny");
                     }
                   });
}

void AppDelegate::promptAlwaysAllowConfirmation(const PendingApproval& approval) {
  using Button = alerts::ConfirmationButton;
  askAboutApproval(alerts::alwaysAllowConfirmation(approval),
                   [id = approval.id](AppDelegate& self, const AlertAnswer& answer) {
                     if (static_cast<Button>(answer.button) != Button::create) {
                       return self.decideApproval(id, "deny");
                     }
                     if (trimmed(answer.text) == alwaysAllowPhrase)
                       return self.decideApproval(id, "always");
                     self.approvalDialog_ = self.dialogs_.presentAlert(
                         alerts::phraseDidNotMatch(),
                         self.weakly([id](AppDelegate& told, const auto&) {
                           told.approvalDialog_.reset();
                           told.decideApproval(id, "deny");
                         }));
                   });
}

/// Shows one of the alerts about the request that is being decided. Should it not come on screen,
/// nobody has refused anything: the request waits for the menu.
void AppDelegate::askAboutApproval(const Alert& alert, ApprovalAnswer answered) {
  approvalDialog_ = dialogs_.presentAlert(
      alert, weakly([answered = std::move(answered)](AppDelegate& self,
                                                     const std::optional<AlertAnswer>& answer) {
        self.approvalDialog_.reset();
        if (answer) return answered(self, *answer);
        log("a request needs your approval and cannot be shown; it waits in the menu");
        self.presentingApproval_ = false;
      }));
}

void AppDelegate::decideApproval(const std::string& id, const std::string& decision) {
  const auto confirm =
      decision == "always" ? std::optional<std::string>(alwaysAllowPhrase) : std::nullopt;
  const auto decided = weakly([id](AppDelegate& self, const Result<void>& result) {
    if (!result) {
      return self.showError(result.error().message,
                            self.weakly([](AppDelegate& told) { told.goOnWithApprovals(); }));
    }
    self.desktop_.removeNotification(id);
    self.goOnWithApprovals();
  });
  client_.decideApproval(id, decision, confirm, decided);
}

void AppDelegate::goOnWithApprovals() {
  presentingApproval_ = false;
  if (!agentView_.activity) return;
  processPendingApprovals(std::vector(agentView_.activity->pendingApprovals));
}

void AppDelegate::reviewPendingApprovals() {
  if (showCurrentApproval() || !agentView_.activity) return;
  const auto& pending = agentView_.activity->pendingApprovals;
  if (!pending.empty()) reviewApproval(PendingApproval(pending.front()));
}

void AppDelegate::reviewNotified(const std::string& id) {
  if (showCurrentApproval() || !agentView_.activity) return;
  const auto& pending = agentView_.activity->pendingApprovals;
  const auto found = std::ranges::find(pending, id, &PendingApproval::id);
  if (found != pending.end()) reviewApproval(PendingApproval(*found));
}

void AppDelegate::reviewApproval(const PendingApproval& approval) {
  seenApprovalIds_.insert(approval.id);
  presentApproval(approval, /*requestedByUser=*/true);
}

bool AppDelegate::showCurrentApproval() {
  if (!presentingApproval_) return false;
  if (approvalDialog_) {
    approvalDialog_->bringToFront();
  } else if (errorDialog_) {
    errorDialog_->bringToFront();  // the decision could not be sent
  }
  return true;
}

/// Without asking: what it takes away can be granted again.
void AppDelegate::revokeEscapeGrant(const EscapeGrant& grant) {
  const auto revoked =
      weakly([](AppDelegate& self, const Result<std::vector<EscapeGrant>>& result) {
        if (!result) return self.showError(result.error().message);
        self.refresh();
      });
  client_.revokeEscapeGrant(grant.kind, grant.path, revoked);
}

/// A newer error takes the place of an older one that is still on screen.
void AppDelegate::showError(const std::string& description, Task acknowledged) {
  log("could not be done: {}", description);
  const auto earlier = std::exchange(errorAcknowledged_, std::move(acknowledged));
  errorDialog_ =
      dialogs_.presentAlert(alerts::error(description), weakly([](AppDelegate& self, const auto&) {
                              self.errorDialog_.reset();
                              const auto then = std::exchange(self.errorAcknowledged_, {});
                              if (then) then();
                            }));
  if (earlier) earlier();
}

}  // namespace zephyl
