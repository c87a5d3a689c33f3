#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"

namespace zephyl {

/// Prompts the user about requests of the agent that reach outside a shared folder, one at a time.
///
///     Idle        No request is being decided. The first pending request whose id was not seen
///                 before is notified and prompted, as is one that the user wants to review:
///                 Prompting.
///     Prompting   The prompt is open. "Deny" and "Allow once": Sending. "Always allow…":
///                 Confirming. If the prompt could not be shown: Idle, and the request stays in the
///                 menu.
///     Confirming  The user types a phrase for a permanent exception. The right phrase: Sending.
///                 Otherwise an alert is shown and the request is denied: Sending. Cancel: the
///                 request is denied: Sending.
///     Sending     The decision is being sent to the agent, again and again for up to 10 s while
///                 the agent cannot be connected, for example because it restarts. Accepted: Idle.
///                 Refused: an error is shown, and when the user has closed it: Idle.
///
/// In Prompting and Confirming, the end of the request closes the dialog: Idle. After each decision
/// the pending requests are checked again. A decision that the user makes elsewhere (`answer`) does
/// not depend on these states, and closes the prompt about its request.
///
/// An id counts as seen while its request is pending. A request ends when it is no longer pending,
/// or when the agent reports another request with the same id. Then its notification is withdrawn,
/// and its prompt closes without a decision.
///
/// Main thread only. Owned by a `shared_ptr`. Dialogs and requests hold it weakly.
class ApprovalPrompts : public std::enable_shared_from_this<ApprovalPrompts> {
 public:
  using Decided = std::function<void(const Result<void>&)>;

  /// The functions that the prompts need from the rest of the tray. Each completion is called once,
  /// later, on the main thread.
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
    /// Polls the agent, because its requests or exceptions have changed.
    std::function<void()> refresh;
    /// Returns the pending requests, or nullopt if they are unknown.
    std::function<std::optional<std::vector<PendingApproval>>()> pending;
    std::function<Instant()> now;
    /// Runs a task on the main thread after a delay.
    std::function<void(Duration, Task)> after;
  };

  explicit ApprovalPrompts(Port port) : port_(std::move(port)) {}

  /// Handles a report of the agent that these requests are pending.
  void processPendingApprovals(const std::vector<PendingApproval>& pending);
  /// Shows the open dialog about a request, or prompts about the first pending one, for the user.
  void reviewPendingApprovals();
  /// Does the same for a request whose notification the user has chosen.
  void reviewNotified(const std::string& id);
  /// Sends a decision that the user has made elsewhere: "approve", "always" or "deny". Calls `done`
  /// when the agent has answered. The caller must show an error. An open prompt about the request
  /// stays until the agent has accepted the decision. Fails if no request with this id is pending,
  /// or if the prompt's own decision is being sent.
  void answer(const std::string& id, const std::string& decision, const Decided& done);
  /// Revokes a permanent exception, without a confirmation, because it can be granted again.
  void revokeEscapeGrant(const EscapeGrant& grant);

 private:
  using Answered = std::function<void(ApprovalPrompts&, const AlertAnswer&)>;
  /// A decision that is being sent.
  struct Decision {
    PendingApproval request;
    std::string decision;
    Decided done;
    Instant lastAttempt;  // no attempt begins later
  };

  void withdrawPromptUnlessPending(const std::vector<PendingApproval>& pending);
  void notify(const PendingApproval& approval);
  void presentApproval(const PendingApproval& approval, bool requestedByUser);
  void promptAlwaysAllowConfirmation(const PendingApproval& approval);
  void confirm(const std::string& id, std::string_view phrase);
  void askAboutApproval(const Alert& alert, Answered answered);
  [[nodiscard]] bool isReplaced(const PendingApproval& request) const;
  void decideApproval(const std::string& id, const std::string& decision);
  void presentNextApproval();
  void withdrawDecided(const std::string& id);
  void sendDecision(const PendingApproval& request, const std::string& decision, Decided done);
  void attempt(const Decision& decision);
  void attemptLater(const Decision& decision, const Result<void>& failure);
  void reviewApproval(const PendingApproval& approval);
  [[nodiscard]] bool showCurrentApproval();
  void showError(const std::string& description, Task acknowledged = {});

  const Port port_;
  std::map<std::string, PendingApproval> seenApprovals_;  // by id
  bool presentingApproval_ = false;                       // Prompting, Confirming or Sending
  PendingApproval promptedApproval_;                      // the current or latest one
  Dialogs::Handle approvalDialog_;
  Dialogs::Handle errorDialog_;
  Task errorAcknowledged_;
};

}  // namespace zephyl
