#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"

namespace zephyl {

/// Asks the user about requests of the agent that reach outside a shared folder, one at a time.
///
///     Idle        nothing is being decided. The first pending request whose id has not been seen
///                 is notified and asked about: Prompting. So is one that the user wants to review.
///     Prompting   the prompt is open. "Deny" and "Allow once": Sending. "Always allow…":
///                 Confirming. A prompt that could not be shown: Idle, and the request waits in the
///                 menu.
///     Confirming  the user types a phrase for a permanent exception. The phrase: Sending. Another
///                 phrase is answered with an alert, then the request is denied: Sending. Cancel:
///                 the request is denied: Sending.
///     Sending     the decision is on its way to the agent. Accepted: Idle. Refused: an error is
///                 shown, and once the user has closed it: Idle.
///
/// In Prompting and Confirming, the end of the request closes the dialog: Idle.
/// After each decided request, the pending ones are checked again. A decision that the user makes
/// elsewhere (`answer`) does not depend on these states, and ends the prompt about its request.
///
/// An id counts as seen while its request is pending. Afterwards its notification is withdrawn.
///
/// Main thread only. Owned by a `shared_ptr`; dialogs and requests hold it weakly.
class ApprovalPrompts : public std::enable_shared_from_this<ApprovalPrompts> {
 public:
  using Decided = std::function<void(const Result<void>&)>;

  /// What the prompts need from the rest of the tray. Completions come later, once each, on the
  /// main thread.
  struct Port {
    std::function<void(const Notification&)> notify;
    /// Removes the notification about a request, if there is one.
    std::function<void(const std::string& id)> withdraw;
    /// As `Dialogs::presentAlert`.
    std::function<Dialogs::Handle(const Alert&, std::function<void(std::optional<AlertAnswer>)>)>
        ask;
    /// Sends a decision, "approve", "always" or "deny". `confirm` is the phrase for "always".
    std::function<void(const std::string& id, const std::string& decision,
                       const std::optional<std::string>& confirm, Decided done)>
        decide;
    std::function<void(const EscapeGrant&, Decided done)> revoke;
    /// Polls the agent, because what it reports about requests or exceptions has changed.
    std::function<void()> refresh;
    /// Returns what is pending now, or nullopt if that is not known.
    std::function<std::optional<std::vector<PendingApproval>>()> pending;
  };

  explicit ApprovalPrompts(Port port) : port_(std::move(port)) {}

  /// The agent has reported these requests as pending.
  void processPendingApprovals(const std::vector<PendingApproval>& pending);
  /// The user wants to decide: shows what is open about a request, or asks about the first one.
  void reviewPendingApprovals();
  /// The same for a request whose notification the user has chosen.
  void reviewNotified(const std::string& id);
  /// Decides a request for the user, who has read it elsewhere: "approve", "always" or "deny".
  /// Calls `done` when the agent has answered; an error is its caller's to show. The prompt about
  /// the request, if it is open, stays until the agent has accepted the decision. Fails if no
  /// request with this id is pending, or if its prompt's own decision is on its way.
  void answer(const std::string& id, const std::string& decision, const Decided& done);
  /// Revokes a permanent exception. Does not ask, because it can be granted again.
  void revokeEscapeGrant(const EscapeGrant& grant);

 private:
  using Answered = std::function<void(ApprovalPrompts&, const AlertAnswer&)>;

  void withdrawPromptUnlessPending(const std::vector<PendingApproval>& pending);
  void notify(const PendingApproval& approval);
  void presentApproval(const PendingApproval& approval, bool requestedByUser);
  void promptAlwaysAllowConfirmation(const PendingApproval& approval);
  void confirm(const std::string& id, std::string_view phrase);
  void askAboutApproval(const Alert& alert, Answered answered);
  void decideApproval(const std::string& id, const std::string& decision);
  void goOnWithApprovals();
  void settle(const std::string& id);
  void sendDecision(const std::string& id, const std::string& decision, Decided done);
  void reviewApproval(const PendingApproval& approval);
  [[nodiscard]] bool showCurrentApproval();
  void showError(const std::string& description, Task acknowledged = {});

  const Port port_;
  std::set<std::string> seenApprovalIds_;
  bool presentingApproval_ = false;  // Prompting, Confirming or Sending
  std::string promptedApprovalId_;
  Dialogs::Handle approvalDialog_;
  Dialogs::Handle errorDialog_;
  Task errorAcknowledged_;
};

}  // namespace zephyl
