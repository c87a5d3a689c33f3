#pragma once

#include <QDialog>
#include <QTimer>
#include <chrono>

#include "Helpers/Dialogs/Program/Conversation.hpp"
#include "Helpers/Dialogs/Program/InputShield.hpp"

namespace zephyl {

/// A window that is shown once. Reports when it is on screen, what the user answers, and when it
/// was hidden. The program then ends, unless the clipboard contains text that was copied from the
/// window. In that case it ends when the clipboard changes, or after `copiedTextTimeout`.
class DialogWindow : public QDialog {
 public:
  static constexpr std::chrono::minutes copiedTextTimeout{30};

  /// The conversation must outlive the window.
  DialogWindow(Conversation& conversation, WindowGuard::Policy shielding);

  /// Shows the window in front of other windows. If the user did not request it, it does not take
  /// the focus, where the window system permits that, and asks for attention instead.
  void present(bool requestedByUser);
  /// Brings the window to the front on request of the user. The token permits it to take the focus
  /// and may be empty.
  void bringToFront(const std::string& activationToken);
  /// Hides the window without an answer.
  void dismiss();
  /// Updates the progress bar of a window that has one.
  virtual void showProgress(const Progress&) {}

 protected:
  void report(const DialogReport& report) { conversation_.report(report); }
  /// Reports the user's answer and closes the window.
  void answer(const DialogReport& report);
  /// Returns the answer for Escape and for closing the window.
  [[nodiscard]] virtual DialogReport safeAnswer() const = 0;
  /// Called when the window starts or stops accepting keys and clicks.
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
