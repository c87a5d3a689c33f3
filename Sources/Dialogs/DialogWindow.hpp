#pragma once

#include <QDialog>
#include <QTimer>
#include <chrono>

#include "Dialogs/Conversation.hpp"

namespace zephyl {

/// A window that is shown once. It reports when it is on screen, what the user answers, and when it
/// has left the screen; then the program ends, unless somebody may still want what was copied from
/// it: that lasts until something else is copied, but no longer than `copiedTextLimit`.
class DialogWindow : public QDialog {
 public:
  static constexpr std::chrono::minutes copiedTextLimit{30};

  /// The conversation outlives it.
  explicit DialogWindow(Conversation& conversation);

  /// Brings it to the screen, in front of other windows where the desktop lets it.
  void present();
  /// Takes it off the screen, without an answer.
  void dismiss();
  /// Moves its bar, where it has one.
  virtual void showProgress(const ProgressValue&) {}

 protected:
  void report(const DialogReport& report) { conversation_.report(report); }
  /// The last thing that the user says.
  void answer(const DialogReport& report);
  /// What it means to press Escape or to close the window.
  [[nodiscard]] virtual DialogReport safeAnswer() const = 0;

  void reject() override { answer(safeAnswer()); }
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  Conversation& conversation_;
  bool shown_ = false;
  bool dismissed_ = false;
  QTimer painted_;
  QTimer ending_;
};

}  // namespace zephyl
