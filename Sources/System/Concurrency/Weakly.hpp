#pragma once

#include <memory>
#include <utility>

namespace zephyl {

/// Returns a function that calls `work(owner, arguments...)` while `owner` lives, and does nothing
/// afterwards. It holds the owner weakly, so that no component is kept alive by its own callbacks.
/// During a call it holds the owner strongly: if it is called on a thread other than the owner's,
/// `work` must only forward the call.
template <typename Owner, typename Work>
auto weakly(const std::shared_ptr<Owner>& owner, Work work) {
  return [weak = std::weak_ptr<Owner>(owner), work = std::move(work)](auto&&... values) {
    if (const auto alive = weak.lock()) work(*alive, std::forward<decltype(values)>(values)...);
  };
}

/// Does the same for an owner that derives from `std::enable_shared_from_this` and is owned by a
/// `shared_ptr`. Must not be called in the owner's constructor.
template <typename Owner, typename Work>
auto weakly(Owner* owner, Work work) {
  return [weak = owner->weak_from_this(), work = std::move(work)](auto&&... values) {
    if (const auto alive = weak.lock()) work(*alive, std::forward<decltype(values)>(values)...);
  };
}

}  // namespace zephyl
