#pragma once

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <deque>

#include "Dialogs/DialogWindow.hpp"
#include "Dialogs/PlainText.hpp"

namespace zephyl {

/// A message with buttons, of which one is pressed. Return presses the one that has the focus, else
/// the first; Escape the safe one.
class AlertWindow final : public DialogWindow {
 public:
  AlertWindow(Conversation& conversation, const AlertRequest& request);

  void showProgress(const ProgressValue& progress) override;

 private:
  [[nodiscard]] DialogReport safeAnswer() const override { return answerOf(safeButton_); }
  [[nodiscard]] DialogReport answerOf(std::int64_t button) const;

  void addTextField(const AlertTextField& field);
  void addProgress(const ProgressValue& progress);
  void addButtons(const std::vector<std::string>& titles);
  /// From left to right, as this desktop has them.
  std::vector<QPushButton*> buttonsInOrder();

  const std::int64_t safeButton_;
  QGridLayout layout_{this};
  QHBoxLayout buttonRow_;
  QLabel icon_;
  WrappedText message_;
  WrappedText information_;
  QLineEdit textField_;
  QProgressBar progress_;
  QLabel progressText_;
  std::deque<QPushButton> buttons_;  // as they were asked for
};

}  // namespace zephyl
