#include "Agent/Approvals.hpp"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace zephyl::sandbox {
namespace {

constexpr std::size_t mostHeld = 200;
constexpr std::size_t mostOutcomes = 1000;

bool alike(const PendingApproval& a, const PendingApproval& b) {
  return a.kind == b.kind && a.target == b.target && a.root == b.root;
}

Rejection notHeld(std::string_view id) {
  return notFound(fmt::format("no request \"{}\" waits for approval", id));
}

}  // namespace

std::string_view name(RequestState state) {
  switch (state) {
    case RequestState::pending:
      return "pending";
    case RequestState::approved:
      return "approved";
    case RequestState::denied:
      return "denied";
    case RequestState::withdrawn:
      break;
  }
  return "withdrawn";
}

Approvals::Approvals(std::vector<EscapeGrant> grants, std::int64_t lastId)
    : grants_(std::move(grants)), lastId_(lastId) {}

bool Approvals::granted(const PendingApproval& request) const {
  return std::any_of(grants_.begin(), grants_.end(), [&](const EscapeGrant& grant) {
    return grant.kind == request.kind && grant.path == request.target && grant.root == request.root;
  });
}

Outcome<PendingApproval> Approvals::hold(PendingApproval request) {
  if (pending_.size() >= mostHeld) return conflict("too many requests wait for approval already");
  request.id = std::to_string(++lastId_);
  request.createdAt = millisecondsSinceEpoch();
  pending_.push_back(request);
  return request;
}

Outcome<std::vector<PendingApproval>> Approvals::decide(std::string_view id, Decision decision) {
  const auto named = [id](const PendingApproval& request) { return request.id == id; };
  const auto outcome = decision == Decision::deny ? RequestState::denied : RequestState::approved;
  auto settled = settle(outcome, named);
  if (settled.empty()) return notHeld(id);
  if (decision != Decision::always) return settled;
  const auto request = settled.front();
  if (!granted(request)) {
    grants_.push_back({.path = request.target,
                       .root = request.root,
                       .kind = request.kind,
                       .grantedAt = millisecondsSinceEpoch(),
                       .grantedBy = request.userName});
  }
  auto same = settle(outcome, [&](const PendingApproval& other) { return alike(request, other); });
  std::move(same.begin(), same.end(), std::back_inserter(settled));
  return settled;
}

Outcome<PendingApproval> Approvals::withdraw(std::string_view id) {
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

Outcome<void> Approvals::revoke(std::string_view kind, std::string_view path) {
  const auto removed = std::erase_if(
      grants_, [&](const EscapeGrant& grant) { return grant.kind == kind && grant.path == path; });
  if (removed == 0) return notFound(fmt::format("there is no exception for {}", path));
  return {};
}

Outcome<RequestState> Approvals::stateOf(const std::string& id) const {
  const auto named = [&](const PendingApproval& request) { return request.id == id; };
  if (std::any_of(pending_.begin(), pending_.end(), named)) return RequestState::pending;
  const auto found = outcomes_.find(id);
  if (found == outcomes_.end()) return notFound(fmt::format("there is no request \"{}\"", id));
  return found->second;
}

template <typename Predicate>
std::vector<PendingApproval> Approvals::settle(RequestState outcome, Predicate concerned) {
  std::vector<PendingApproval> settled;
  std::copy_if(pending_.begin(), pending_.end(), std::back_inserter(settled), concerned);
  std::erase_if(pending_, concerned);
  for (const auto& request : settled) {
    outcomes_[request.id] = outcome;
    outcomeOrder_.push_back(request.id);
  }
  while (outcomeOrder_.size() > mostOutcomes) {
    outcomes_.erase(outcomeOrder_.front());
    outcomeOrder_.pop_front();
  }
  return settled;
}

}  // namespace zephyl::sandbox
