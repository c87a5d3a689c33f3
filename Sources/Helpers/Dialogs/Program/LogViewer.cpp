#include "Helpers/Dialogs/Program/LogViewer.hpp"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <algorithm>

#include "Helpers/Dialogs/Program/Appearance.hpp"
#include "Helpers/Dialogs/Program/Screens.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

using Event = LogWindowEvent;

constexpr QSize logWindowSize{560, 380};
constexpr int inset = 18;
constexpr int partSpacing = 10;
constexpr int buttonSpacing = 8;
constexpr int contentWidth = 524;
constexpr int logHeight = 260;
constexpr int logInset = 4;
constexpr int maxMessageLines = 8;

/// Font sizes are relative to the desktop's own font, which counts as 13.
constexpr double smallFont = 11.0 / 13.0;

QFont bold(QFont font, double scale = 1) {
  font.setBold(true);
  font.setPointSizeF(font.pointSizeF() * scale);
  return font;
}

QFont monospaced(double scale) {
  QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  font.setPointSizeF(font.pointSizeF() * scale);
  return font;
}

}  // namespace

LogViewer::LogViewer(Conversation& conversation, const LogWindow& window)
    : DialogWindow(conversation, window.requestedByUser ? WindowGuard::Policy::never
                                                        : WindowGuard::Policy::always),
      fullText_(QString::fromStdString(visibleLines(window.fullText))),
      message_(plainText(window.message), bold(font()),
               {contentWidth, maxMessageLines * fontMetrics().lineSpacing()}) {
  setWindowTitle(plainText(window.title));
  setWindowFlag(Qt::WindowMinMaxButtonsHint);
  layout_.setContentsMargins(inset, inset, inset, inset);
  layout_.setSpacing(partSpacing);
  if (!window.message.empty()) addMessage(window.message);
  makeLogScrollView(window.shownText);
  addButtons();
  acceptInput(acceptsInput());
  const int missing = logHeight - log_.sizeHint().height();
  const QSize wanted = logWindowSize.expandedTo(sizeHint() + QSize(0, missing));
  resize(wanted.boundedTo(roomOnEveryScreen()));
}

DialogReport LogViewer::safeAnswer() const {
  return Event::closed;
}

void LogViewer::acceptInput(bool accepts) {
  for (auto* const button : {&copy_, &open_, &close_}) button->setEnabled(accepts);
  if (accepts) close_.setFocus();
}

void LogViewer::addMessage(const std::string& text) {
  QPalette red = message_.palette();
  red.setColor(QPalette::Text, alarmingColor(red));
  message_.setPalette(red);
  message_.setAccessibleName(QStringLiteral("Message"));
  setAccessibleDescription(plainText(text));
  layout_.addWidget(&message_);
  QApplication::beep();
}

void LogViewer::makeLogScrollView(const std::string& text) {
  label_.setFont(bold(font(), smallFont));
  QPalette secondary = label_.palette();
  secondary.setColor(QPalette::WindowText, secondaryColor(secondary));
  label_.setPalette(secondary);
  label_.setBuddy(&log_);
  layout_.addWidget(&label_);

  log_.setAccessibleName(QStringLiteral("Log"));
  log_.setFont(monospaced(smallFont));
  log_.setReadOnly(true);
  log_.setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  log_.setTabChangesFocus(true);
  log_.setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  log_.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  log_.setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
  log_.document()->setDocumentMargin(logInset);
  setLeftToRight(*log_.document());
  log_.setPlainText(plainText(text));
  log_.setMinimumSize(contentWidth / 2, logHeight / 4);
  layout_.addWidget(&log_, 1);
}

void LogViewer::addButtons() {
  connect(&copy_, &QPushButton::clicked, this, &LogViewer::copyLogToClipboard);
  addEditor(QStringLiteral("Open in Cursor"), Event::openInCursor);
  addEditor(QStringLiteral("Open in VS Code"), Event::openInVSCode);
  addEditor(QStringLiteral("Open in TextEdit (Notepad)"), Event::openInTextEdit);
  open_.setMenu(&editors_);
  connect(&close_, &QPushButton::clicked, this, [this] { reject(); });

  buttonRow_.setSpacing(buttonSpacing);
  buttonRow_.addWidget(&copy_);
  buttonRow_.addWidget(&open_);
  buttonRow_.addStretch();
  buttonRow_.addWidget(&close_);
  layout_.addLayout(&buttonRow_);
  close_.setDefault(true);
  close_.setFocus();
}

void LogViewer::copyLogToClipboard() {
  QGuiApplication::clipboard()->setText(fullText_);
}

void LogViewer::addEditor(const QString& title, Event event) {
  connect(editors_.addAction(title), &QAction::triggered, this, [this, event] { report(event); });
}

}  // namespace zephyl
