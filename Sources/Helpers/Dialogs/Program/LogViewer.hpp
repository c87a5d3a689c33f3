#pragma once

#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "Helpers/Dialogs/Program/DialogWindow.hpp"
#include "Helpers/Dialogs/Program/PlainText.hpp"

namespace zephyl {

/// Shows a log, optionally with a message about an error, until it is closed.
class LogViewer final : public DialogWindow {
 public:
  LogViewer(Conversation& conversation, const LogWindow& window);

 private:
  [[nodiscard]] DialogReport safeAnswer() const override;
  void acceptInput(bool accepts) override;

  void addMessage(const std::string& text);
  void makeLogScrollView(const std::string& text);
  void addButtons();
  void copyLogToClipboard();
  void addEditor(const QString& title, LogWindowEvent event);

  const QString fullText_;
  QVBoxLayout layout_{this};
  QHBoxLayout buttonRow_;
  WrappedText message_;
  QLabel label_{QStringLiteral("Log:")};
  QPlainTextEdit log_;
  QPushButton copy_{QStringLiteral("Copy Full Log")};
  QMenu editors_;
  QPushButton open_{QStringLiteral("Write to File && Open…")};
  QPushButton close_{QStringLiteral("Close")};
};

}  // namespace zephyl
