#pragma once

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <deque>

#include "Helpers/Dialogs/Program/DialogWindow.hpp"
#include "Helpers/Dialogs/Program/PlainText.hpp"

namespace zephyl {

/// A message with buttons, of which the user presses one. Return presses the focused button, or the
/// first one. Escape presses the safe one. Buttons are disabled while the window does not accept
/// input. Permitting buttons are also disabled until the end of the text was on screen.
class AlertWindow final : public DialogWindow {
 public:
  AlertWindow(Conversation& conversation, const Alert& alert);

  void showProgress(const Progress& progress) override;

 private:
  [[nodiscard]] DialogReport safeAnswer() const override { return answerOf(safeButton_); }
  [[nodiscard]] DialogReport answerOf(std::size_t button) const;
  void acceptInput(bool accepts) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

  void addTextField(const Alert::TextField& field);
  void addProgress(const Progress& progress);
  void addButtons(const std::vector<std::string>& titles);
  /// Keeps the permitting buttons disabled until the text was read.
  void requireReading();
  void updateButtons();
  [[nodiscard]] bool wasRead() const;
  /// Returns the buttons from left to right in this desktop's order.
  std::vector<QPushButton*> buttonsInOrder();

  const std::size_t safeButton_;
  const std::vector<std::size_t> permittingButtons_;
  QGridLayout layout_{this};
  QHBoxLayout buttonRow_;
  QLabel icon_;
  WrappedText message_;
  WrappedText information_;
  QLineEdit textField_;
  QProgressBar progress_;
  QLabel progressText_;
  QLabel readingHint_;
  std::deque<QPushButton> buttons_;  // in the order of the request
};

}  // namespace zephyl
