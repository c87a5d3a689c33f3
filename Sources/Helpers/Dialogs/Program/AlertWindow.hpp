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

/// A message with buttons, one of which the user presses. Return presses the button that has the
/// focus, else the first; Escape presses the safe one. Buttons are disabled while the window does
/// not accept input, those that permit something also until the end of the text was on screen.
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
  /// Keeps the buttons that permit something disabled until the text was read.
  void requireReading();
  void updateButtons();
  [[nodiscard]] bool wasRead() const;
  /// From left to right, as this desktop has them.
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
  std::deque<QPushButton> buttons_;  // as they were asked for
};

}  // namespace zephyl
