#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace zephyl::sandbox {

/// Calls everyone who listens. Listening ends with the handle, which may outlive the signal. For
/// one thread.
class Signal {
 public:
  using Handle = std::shared_ptr<void>;

  [[nodiscard]] Handle listen(std::function<void()> listener) {
    auto shared = std::make_shared<std::function<void()>>(std::move(listener));
    listeners_.push_back(shared);
    return shared;
  }

  void raise() {
    std::erase_if(listeners_, [](const auto& listener) { return listener.expired(); });
    const auto present = listeners_;
    for (const auto& listener : present) {
      if (const auto alive = listener.lock()) (*alive)();
    }
  }

 private:
  std::vector<std::weak_ptr<std::function<void()>>> listeners_;
};

}  // namespace zephyl::sandbox
