#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Agent/Outcome.hpp"
#include "Agent/Records.hpp"

namespace zephyl::sandbox {

enum class RequestState { pending, approved, denied, withdrawn };
enum class Decision { approve, always, deny };

std::string_view name(RequestState state);

/// The requests that reach outside a shared folder, and the permanent exceptions to asking.
///
/// A request is held until the user decides, whoever made it withdraws it, or its folder is no
/// longer shared, which denies it. "Always" makes an exception for requests of the same kind, with
/// the same target, from the same folder: those already held pass with it, later ones are never
/// held. The outcomes of the last 1000 settled requests can be asked for; at most 200 are held.
class Approvals {
 public:
  /// Ids continue after `lastId`, so that no two runs give out the same one.
  Approvals(std::vector<EscapeGrant> grants, std::int64_t lastId);

  /// Whether an exception lets this request pass.
  bool granted(const PendingApproval& request) const;

  /// Gives the request its id and holds it.
  Outcome<PendingApproval> hold(PendingApproval request);

  /// Answers with the requests that this settles, the one decided first.
  Outcome<std::vector<PendingApproval>> decide(std::string_view id, Decision decision);

  Outcome<PendingApproval> withdraw(std::string_view id);

  /// Denies what is held for the folder and drops its exceptions; answers with the denied.
  std::vector<PendingApproval> forgetFolder(std::string_view root);

  /// Removes the exceptions of this kind for this path, whichever their folder.
  Outcome<void> revoke(std::string_view kind, std::string_view path);

  Outcome<RequestState> stateOf(const std::string& id) const;

  const std::vector<PendingApproval>& pending() const { return pending_; }
  const std::vector<EscapeGrant>& grants() const { return grants_; }
  std::int64_t lastId() const { return lastId_; }

 private:
  template <typename Predicate>
  std::vector<PendingApproval> settle(RequestState outcome, Predicate concerned);

  std::vector<PendingApproval> pending_;
  std::vector<EscapeGrant> grants_;
  std::map<std::string, RequestState, std::less<>> outcomes_;
  std::deque<std::string> outcomeOrder_;
  std::int64_t lastId_;
};

}  // namespace zephyl::sandbox
