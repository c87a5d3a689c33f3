#include "Agent/Approvals.hpp"

#include <algorithm>
#include <iterator>

namespace zephyl::sandbox {
namespace {

constexpr std::size_t maxHeld = 200;
constexpr std::size_t maxSettled = 1000;

bool alike(const PendingApproval& a, const PendingApproval& b) {
  return a.kind == b.kind && a.target == b.target && a.root == b.root;
}

Error notHeld(std::string_view id) {
  return {"no request \"", id, "\" waits for approval"};
}

}  // namespace

Approvals::Approvals(std::vector<EscapeGrant> grants, std::int64_t lastId)
    : grants_(std::move(grants)), lastId_(lastId) {}

bool Approvals::isGranted(const PendingApproval& request) const {
  return std::ranges::any_of(grants_, [&](const EscapeGrant& grant) {
    return grant.kind == request.kind && grant.path == request.target && grant.root == request.root;
  });
}

Result<PendingApproval> Approvals::hold(PendingApproval request) {
  if (pending_.size() >= maxHeld) return Error{"too many requests wait for approval already"};
  request.id = std::to_string(++lastId_);
  request.createdAt = millisecondsSinceEpoch();
  pending_.push_back(request);
  return request;
}

Result<std::vector<PendingApproval>> Approvals::decide(std::string_view id, Decision decision) {
  const auto named = [id](const PendingApproval& request) { return request.id == id; };
  const auto state = decision == Decision::deny ? RequestState::denied : RequestState::approved;
  auto settled = settle(state, named);
  if (settled.empty()) return notHeld(id);
  if (decision != Decision::always) return settled;
  const auto request = settled.front();
  if (!isGranted(request)) {
    grants_.push_back({.path = request.target,
                       .root = request.root,
                       .kind = request.kind,
                       .grantedAt = millisecondsSinceEpoch(),
                       .grantedBy = request.userName});
  }
  auto same = settle(state, [&](const PendingApproval& other) { return alike(request, other); });
  std::ranges::move(same, std::back_inserter(settled));
  return settled;
}

Result<PendingApproval> Approvals::withdraw(std::string_view id) {
  auto settled = settle(RequestState::withdrawn,
                        [id](const PendingApproval& request) { return request.id == id; });
  if (settled.empty()) return notHeld(id);
  return settled.front();
}

std::vector<PendingApproval> Approvals::forgetFolder(std::string_view root) {
  std::erase_if(grants_, [root](const EscapeGrant& grant) { return grant.root == root; });
  return settle(RequestState::denied,
                [root](const PendingApproval& request) { return request.root == root; });
}

Result<void> Approvals::revoke(std::string_view kind, std::string_view path) {
  const auto removed = std::erase_if(
      grants_, [&](const EscapeGrant& grant) { return grant.kind == kind && grant.path == path; });
  if (removed == 0) return Error{"there is no exception for ", path};
  return {};
}

Result<RequestState> Approvals::stateOf(const std::string& id) const {
  const auto held = std::ranges::find(pending_, id, &PendingApproval::id);
  if (held != pending_.end()) return RequestState::pending;
  const auto found = std::ranges::find(settled_, id, &std::pair<std::string, RequestState>::first);
  if (found == settled_.end()) return Error{"there is no request \"", id, "\""};
  return found->second;
}

template <typename Predicate>
std::vector<PendingApproval> Approvals::settle(RequestState state, Predicate concerned) {
  std::vector<PendingApproval> settled;
  std::ranges::copy_if(pending_, std::back_inserter(settled), concerned);
  std::erase_if(pending_, concerned);
  for (const auto& request : settled) settled_.emplace_back(request.id, state);
  while (settled_.size() > maxSettled) settled_.pop_front();
  return settled;
}

}  // namespace zephyl::sandbox
