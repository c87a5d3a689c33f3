#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/describe/enum.hpp>

#include "Agent/Records.hpp"
#include "System/Data/Result.hpp"

namespace zephyl::sandbox {

enum class Decision { approve, always, deny };
BOOST_DESCRIBE_ENUM(Decision, approve, always, deny)

/// The requests that reach outside a shared folder, and the permanent exceptions to asking.
///
/// A request is held until the user decides, its source withdraws it, or its folder is no longer
/// shared, which denies it. "Always" creates an exception for requests of the same kind and target
/// from the same folder. Held requests that match are approved with it, and later ones are not
/// held. At most 200 requests are held. The states of the last 1000 settled requests are kept.
class Approvals {
 public:
  /// Ids continue after `lastId`, so that ids are unique across runs.
  Approvals(std::vector<EscapeGrant> grants, std::int64_t lastId);

  /// Returns whether an exception lets this request pass.
  [[nodiscard]] bool isGranted(const PendingApproval& request) const;

  /// Assigns an id to the request and holds it.
  Result<PendingApproval> hold(PendingApproval request);

  /// Returns the requests that this settles, beginning with the decided one.
  Result<std::vector<PendingApproval>> decide(std::string_view id, Decision decision);

  Result<PendingApproval> withdraw(std::string_view id);

  /// Denies the requests that are held for the folder and removes its exceptions. Returns the
  /// denied requests.
  std::vector<PendingApproval> forgetFolder(std::string_view root);

  /// Removes the exceptions of this kind for this path, in all folders.
  Result<void> revoke(std::string_view kind, std::string_view path);

  [[nodiscard]] Result<RequestState> stateOf(const std::string& id) const;

  [[nodiscard]] const std::vector<PendingApproval>& pending() const { return pending_; }
  [[nodiscard]] const std::vector<EscapeGrant>& grants() const { return grants_; }
  [[nodiscard]] std::int64_t lastId() const { return lastId_; }

 private:
  template <typename Predicate>
  std::vector<PendingApproval> settle(RequestState state, Predicate concerned);

  std::vector<PendingApproval> pending_;
  std::vector<EscapeGrant> grants_;
  /// The ids of the last settled requests with their states, oldest first.
  std::deque<std::pair<std::string, RequestState>> settled_;
  std::int64_t lastId_;
};

}  // namespace zephyl::sandbox
