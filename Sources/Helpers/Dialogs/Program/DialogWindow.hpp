#pragma once

#include <QDialog>
#include <QTimer>
#include <chrono>

#include "Helpers/Dialogs/Program/Conversation.hpp"
#include "Helpers/Dialogs/Program/InputShield.hpp"

namespace zephyl {

/// A window that is shown once. It reports when it is on screen, what the user answers, and when it
/// has left the screen. The program then ends, unless the clipboard holds text copied from the
/// window: in that case it ends when something else is copied, or after `copiedTextTimeout`.
class DialogWindow : public QDialog {
 public:
  static constexpr std::chrono::minutes copiedTextTimeout{30};

  /// The conversation outlives the window.
  DialogWindow(Conversation& conversation, InputShield::Policy shielding);

  /// Shows the window in front of other windows. One that the user did not request does not take
  /// the focus, where the window system allows that, and asks for attention instead.
  void present(bool requestedByUser);
  /// Brings the window to the front because the user has asked for it. The token, which may be
  /// empty, permits it to take the focus.
  void bringToFront(const std::string& activationToken);
  /// Hides the window without an answer.
  void dismiss();
  /// Moves the progress bar of a window that has one.
  virtual void showProgress(const Progress&) {}

 protected:
  void report(const DialogReport& report) { conversation_.report(report); }
  /// Reports the user's answer and closes the window.
  void answer(const DialogReport& report);
  /// Returns what Escape and closing the window mean.
  [[nodiscard]] virtual DialogReport safeAnswer() const = 0;
  /// Called when the window begins or stops accepting keys and clicks.
  virtual void acceptInput(bool /*accepts*/) {}
  [[nodiscard]] bool acceptsInput() const { return shield_.accepts(); }

  void reject() override { answer(safeAnswer()); }
  bool eventFilter(QObject* watched, QEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  Conversation& conversation_;
  InputShield shield_;
  bool shown_ = false;
  bool dismissed_ = false;
  QTimer painted_;
  QTimer ending_;
};

}  // namespace zephyl
