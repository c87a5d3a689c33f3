#pragma once

#include <memory>
#include <utility>

namespace zephyl {

/// Returns a function that calls `work(owner, values...)` with its arguments while `owner` lives,
/// and does nothing afterwards. It holds the owner weakly, so that no component is kept alive by
/// the callbacks that it hands out. During a call it holds the owner strongly: where it is called
/// on another thread than the owner's, `work` must only hand the call on.
template <typename Owner, typename Work>
auto weakly(const std::shared_ptr<Owner>& owner, Work work) {
  return [weak = std::weak_ptr<Owner>(owner), work = std::move(work)](auto&&... values) {
    if (const auto alive = weak.lock()) work(*alive, std::forward<decltype(values)>(values)...);
  };
}

/// The same for an owner that derives from `std::enable_shared_from_this` and is owned by a
/// `shared_ptr`. Must not be called in its constructor.
template <typename Owner, typename Work>
auto weakly(Owner* owner, Work work) {
  return [weak = owner->weak_from_this(), work = std::move(work)](auto&&... values) {
    if (const auto alive = weak.lock()) work(*alive, std::forward<decltype(values)>(values)...);
  };
}

}  // namespace zephyl
