#pragma once

#include <optional>

#include "Desktop/InputGuard.hpp"
#include "Desktop/Terminal/Views/DialogStack.hpp"
#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Decides when the topmost dialog may be answered.
///
/// A dialog that the user requested accepts no answer until `requestedDelay` after it appeared. Any
/// other dialog ignores all keys as `InputGuard` requires, also when the terminal reports that it
/// has become active. The latter also applies to a requested dialog that permits something.
///
/// A value. The caller supplies the time.
class AnswerGuard {
 public:
  static constexpr Duration requestedDelay = std::chrono::milliseconds(400);

  /// What the topmost dialog may do with a key.
  enum class Permission {
    ignore,    ///< nothing: the key was not meant for it
    navigate,  ///< anything except answer
    answer
  };

  /// Must be called whenever the dialogs are drawn. Returns how long the topmost one accepts no
  /// answer if no further key is pressed, or zero if it accepts one.
  Duration drawn(const DialogStack& dialogs, Instant now);
  /// Must be called when the terminal has become active.
  void terminalActivated(const DialogStack& dialogs, Instant now);
  /// Must be called for each key while a dialog is open.
  Permission keyPressed(const DialogStack& dialogs, Instant now);

 private:
  /// Whether the topmost dialog has an input guard, and the guard's state.
  enum class State { unguarded, closed, open };

  void topChanged(const DialogStack& dialogs, Instant now);
  [[nodiscard]] Duration remaining(Instant now) const;

  std::optional<DialogStack::Number> drawnTop_;  // the topmost dialog at the last drawing
  Instant topSince_{};
  State state_ = State::unguarded;
  InputGuard guard_;  // of the topmost dialog
};

}  // namespace zephyl
