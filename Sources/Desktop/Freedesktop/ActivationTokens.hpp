#pragma once

#include <string>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// The activation tokens of the user's actions. A token permits one window to come to the front. It
/// is available only while the action that it came with is handled, so that no later, unrelated
/// window gets it. Tokens may be empty.
///
/// Main thread only.
class ActivationTokens {
 public:
  /// The time after which a token that no action has followed is dropped. Some hosts provide the
  /// token when they open the menu, and the user needs time to choose. Compositors do not accept
  /// much older tokens.
  static constexpr Duration lifetime = std::chrono::seconds(30);

  /// `clock` must outlive it. `started` is the token of the start of this program, which is
  /// available until it is consumed.
  ActivationTokens(Clock& clock, std::string started);

  /// Stores the token of the next action on the status item, which the host sends separately.
  void provide(const std::string& token);
  /// Returns and clears the stored token. Empty if it is too old.
  std::string consumeProvided();

  /// Runs `handler`, which handles the action of `token`.
  void handle(const std::string& token, const Task& handler);
  /// Returns and clears the token of the action that is being handled, otherwise empty.
  std::string consume();

 private:
  Clock& clock_;
  std::string current_;
  std::string provided_;
  Instant providedAt_{};
};

}  // namespace zephyl
