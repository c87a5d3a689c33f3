#include "ZephylTray/Approvals/ApprovalPrompts.hpp"

#include <algorithm>
#include <tuple>
#include <utility>

#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/Approvals/Alerts.hpp"
#include "ZephylTray/Approvals/ApprovalTexts.hpp"

namespace zephyl {

namespace {

/// How often and for how long a decision is sent again while the agent cannot be connected.
constexpr std::chrono::milliseconds attemptInterval{250};
constexpr std::chrono::seconds attemptPeriod{10};

const PendingApproval* find(const std::vector<PendingApproval>& pending, const std::string& id) {
  const auto found = std::ranges::find(pending, id, &PendingApproval::id);
  return found == pending.end() ? nullptr : &*found;
}

/// Returns whether `request`, or one with the same content, is pending. An agent that has restarted
/// may use an id again for another request.
bool isStillPending(const std::vector<PendingApproval>& pending, const PendingApproval& request) {
  const auto content = [](const PendingApproval& each) {
    return std::tie(each.kind, each.tool, each.target, each.root, each.reasons);
  };
  const auto* const same = find(pending, request.id);
  return same != nullptr && content(*same) == content(request);
}

}  // namespace

void ApprovalPrompts::processPendingApprovals(const std::vector<PendingApproval>& pending) {
  std::erase_if(seenApprovals_, [&](const auto& seen) {
    const auto& [id, approval] = seen;
    if (isStillPending(pending, approval)) return false;
    port_.withdraw(id);
    return true;
  });
  withdrawPromptUnlessPending(pending);
  if (presentingApproval_) return;
  const auto unseen = std::ranges::find_if(
      pending, [this](const auto& approval) { return !seenApprovals_.contains(approval.id); });
  if (unseen == pending.end()) return;
  seenApprovals_.try_emplace(unseen->id, *unseen);
  notify(*unseen);
  presentApproval(*unseen, /*requestedByUser=*/false);
}

void ApprovalPrompts::withdrawPromptUnlessPending(const std::vector<PendingApproval>& pending) {
  if (!approvalDialog_ || isStillPending(pending, promptedApproval_)) return;
  approvalDialog_.reset();
  presentingApproval_ = false;
}

void ApprovalPrompts::notify(const PendingApproval& approval) {
  port_.notify({.identifier = approval.id,
                .title = "Zephyl: approval needed",
                .body = approvalNotificationText(approval),
                .actionTitle = "Review…"});
}

void ApprovalPrompts::presentApproval(const PendingApproval& approval, bool requestedByUser) {
  using Button = alerts::ApprovalButton;
  presentingApproval_ = true;
  promptedApproval_ = approval;
  askAboutApproval(alerts::approval(approval, requestedByUser),
                   [approval](ApprovalPrompts& self, const AlertAnswer& answer) {
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

void ApprovalPrompts::promptAlwaysAllowConfirmation(const PendingApproval& approval) {
  using Button = alerts::ConfirmationButton;
  askAboutApproval(alerts::alwaysAllowConfirmation(approval),
                   [id = approval.id](ApprovalPrompts& self, const AlertAnswer& answer) {
                     if (static_cast<Button>(answer.button) == Button::create) {
                       self.confirm(id, answer.text);
                     } else {
                       self.decideApproval(id, "deny");
                     }
                   });
}

void ApprovalPrompts::confirm(const std::string& id, std::string_view phrase) {
  if (trimmed(phrase) == alwaysAllowPhrase) return decideApproval(id, "always");
  approvalDialog_ =
      port_.ask(alerts::phraseDidNotMatch(), weakly(this, [id](ApprovalPrompts& self, const auto&) {
                  self.approvalDialog_.reset();
                  self.decideApproval(id, "deny");
                }));
}

/// If the alert cannot be shown, nothing is decided and the request stays in the menu.
void ApprovalPrompts::askAboutApproval(const Alert& alert, Answered answered) {
  approvalDialog_ = port_.ask(
      alert, weakly(this, [answered = std::move(answered)](
                              ApprovalPrompts& self, const std::optional<AlertAnswer>& answer) {
        self.approvalDialog_.reset();
        if (answer) return answered(self, *answer);
        log("could not show the prompt about a request; the request waits in the menu");
        self.presentingApproval_ = false;
      }));
}

/// Returns whether the agent has meanwhile given the id of the request to another one.
bool ApprovalPrompts::isReplaced(const PendingApproval& request) const {
  const auto pending = port_.pending();
  return pending && find(*pending, request.id) != nullptr && !isStillPending(*pending, request);
}

void ApprovalPrompts::decideApproval(const std::string& id, const std::string& decision) {
  if (isReplaced(promptedApproval_)) return presentNextApproval();
  sendDecision(promptedApproval_, decision,
               weakly(this, [id](ApprovalPrompts& self, const Result<void>& result) {
                 if (!result) {
                   return self.showError(result.error().message,
                                         weakly(&self, [](ApprovalPrompts& acknowledged) {
                                           acknowledged.presentNextApproval();
                                         }));
                 }
                 self.port_.withdraw(id);
                 self.presentNextApproval();
               }));
}

void ApprovalPrompts::sendDecision(const PendingApproval& request, const std::string& decision,
                                   Decided done) {
  attempt({.request = request,
           .decision = decision,
           .done = std::move(done),
           .lastAttempt = port_.now() + attemptPeriod});
}

void ApprovalPrompts::attempt(const Decision& decision) {
  const auto confirm =
      decision.decision == "always" ? std::optional<std::string>(alwaysAllowPhrase) : std::nullopt;
  port_.decide(decision.request.id, decision.decision, confirm,
               weakly(this, [decision](ApprovalPrompts& self, const Result<void>& result) {
                 if (!result && result.error().nothingSent) {
                   self.attemptLater(decision, result);
                 } else {
                   decision.done(result);
                 }
               }));
}

/// Repeats an attempt of which nothing was sent, unless the time is over or another request has got
/// the id.
void ApprovalPrompts::attemptLater(const Decision& decision, const Result<void>& failure) {
  if (port_.now() + attemptInterval > decision.lastAttempt) return decision.done(failure);
  port_.after(attemptInterval, weakly(this, [decision, failure](ApprovalPrompts& self) {
                if (self.isReplaced(decision.request)) return decision.done(failure);
                self.attempt(decision);
              }));
}

void ApprovalPrompts::answer(const std::string& id, const std::string& decision,
                             const Decided& done) {
  const auto pending = port_.pending();
  const auto* const approval = pending ? find(*pending, id) : nullptr;
  if (approval == nullptr) return done(Error{"No request has this id."});
  const bool isPrompted = presentingApproval_ && promptedApproval_.id == id;
  if (isPrompted && !approvalDialog_) return done(Error{"This request is being decided already."});
  // No prompt about the request is wanted now. If the decision fails, it may be prompted again.
  const bool isNew = seenApprovals_.try_emplace(id, *approval).second;
  sendDecision(*approval, decision,
               weakly(this, [id, isNew, done](ApprovalPrompts& self, const Result<void>& result) {
                 if (result) {
                   self.withdrawDecided(id);
                 } else if (isNew) {
                   self.seenApprovals_.erase(id);
                 }
                 done(result);
               }));
}

/// Withdraws the notification and the prompt about a request that was decided elsewhere.
void ApprovalPrompts::withdrawDecided(const std::string& id) {
  port_.withdraw(id);
  if (approvalDialog_ && promptedApproval_.id == id) {
    approvalDialog_.reset();
    presentNextApproval();
  }
  port_.refresh();
}

/// Ends the current request and prompts about the next one, if there is one.
void ApprovalPrompts::presentNextApproval() {
  presentingApproval_ = false;
  if (const auto pending = port_.pending()) processPendingApprovals(*pending);
}

void ApprovalPrompts::reviewPendingApprovals() {
  if (showCurrentApproval()) return;
  const auto pending = port_.pending();
  if (pending && !pending->empty()) reviewApproval(pending->front());
}

void ApprovalPrompts::reviewNotified(const std::string& id) {
  if (showCurrentApproval()) return;
  const auto pending = port_.pending();
  if (!pending) return;
  if (const auto* const approval = find(*pending, id)) reviewApproval(*approval);
}

void ApprovalPrompts::reviewApproval(const PendingApproval& approval) {
  seenApprovals_.insert_or_assign(approval.id, approval);
  presentApproval(approval, /*requestedByUser=*/true);
}

/// Brings the open dialog about a request to the front. Returns whether a request is being decided.
bool ApprovalPrompts::showCurrentApproval() {
  if (!presentingApproval_) return false;
  if (approvalDialog_) {
    approvalDialog_->bringToFront();
  } else if (errorDialog_) {
    errorDialog_->bringToFront();  // the decision could not be sent
  }
  return true;
}

void ApprovalPrompts::revokeEscapeGrant(const EscapeGrant& grant) {
  port_.revoke(grant, weakly(this, [](ApprovalPrompts& self, const Result<void>& result) {
                 if (!result) return self.showError(result.error().message);
                 self.port_.refresh();
               }));
}

/// A newer error replaces an open one, which then counts as acknowledged.
void ApprovalPrompts::showError(const std::string& description, Task acknowledged) {
  log("the agent refused a change: {}", description);
  const auto earlier = std::exchange(errorAcknowledged_, std::move(acknowledged));
  errorDialog_ =
      port_.ask(alerts::error(description), weakly(this, [](ApprovalPrompts& self, const auto&) {
                  self.errorDialog_.reset();
                  const auto then = std::exchange(self.errorAcknowledged_, {});
                  if (then) then();
                }));
  if (earlier) earlier();
}

}  // namespace zephyl
