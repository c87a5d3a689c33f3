#include "Dialogs/AlertWindow.hpp"

#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <algorithm>

#include "Dialogs/Symbol.hpp"

namespace zephyl {

namespace {

constexpr int margin = 20;
constexpr int spacing = 12;
constexpr int gapBesideIcon = 16;
constexpr int iconSize = 48;
constexpr int textWidth = 460;
constexpr int progressSteps = 1000;

/// What is typed is an answer of a line; a paste without end is not.
constexpr int maxTypedCharacters = 4096;

QFont messageFont(QFont font) {
  font.setBold(true);
  font.setPointSizeF(font.pointSizeF() * 1.1);
  return font;
}

/// The screen bounds what a text may take, whatever it says.
WrappedText::Room roomFor(double shareOfHeight) {
  const QSize screen = QGuiApplication::primaryScreen()->availableSize();
  return {std::min(textWidth, screen.width() * 2 / 3),
          static_cast<int>(screen.height() * shareOfHeight)};
}

}  // namespace

AlertWindow::AlertWindow(Conversation& conversation, const AlertRequest& request)
    : DialogWindow(conversation),
      safeButton_(request.safeButton),
      message_(plainText(request.messageText), messageFont(font()), roomFor(0.2)),
      information_(plainText(request.informativeText), font(), roomFor(0.4)) {
  setWindowTitle(QStringLiteral("Zephyl"));
  setAccessibleName(plainText(request.messageText));
  setAccessibleDescription(plainText(request.informativeText));
  icon_.setPixmap(symbolOf(request.style, iconSize, devicePixelRatio()));
  icon_.setAccessibleName(nameOfSymbol(request.style));
  message_.setAccessibleName(QStringLiteral("Message"));
  information_.setAccessibleName(QStringLiteral("Details"));

  layout_.setContentsMargins(margin, margin, margin, margin);
  layout_.setHorizontalSpacing(gapBesideIcon);
  layout_.setVerticalSpacing(spacing);
  layout_.setColumnStretch(1, 1);
  layout_.setRowStretch(1, 1);
  layout_.addWidget(&icon_, 0, 0, 2, 1, Qt::AlignTop);
  layout_.addWidget(&message_, 0, 1);
  if (!request.informativeText.empty()) layout_.addWidget(&information_, 1, 1);
  addButtons(request.buttons);
  if (request.textField) addTextField(*request.textField);
  if (request.progress) addProgress(*request.progress);
  resize(sizeHint());  // the toolkit's own choice would be cut on a small screen
}

DialogReport AlertWindow::answerOf(std::int64_t button) const {
  return {.answer = AlertReply{button, textField_.text().toStdString()}};
}

void AlertWindow::addTextField(const AlertTextField& field) {
  textField_.setPlaceholderText(plainText(field.placeholder));
  textField_.setAccessibleName(plainText(field.placeholder));
  textField_.setMaxLength(maxTypedCharacters);
  textField_.setMinimumWidth(static_cast<int>(std::clamp<std::int64_t>(field.width, 0, textWidth)));
  layout_.addWidget(&textField_, 2, 1, Qt::AlignLeft);
  setTabOrder(&information_, &textField_);
  textField_.setFocus();
}

void AlertWindow::addProgress(const ProgressValue& progress) {
  progress_.setAccessibleName(QStringLiteral("Progress"));
  progress_.setTextVisible(false);
  progress_.setMinimumWidth(std::min(textWidth, roomFor(1).width));
  progressText_.setTextFormat(Qt::PlainText);
  layout_.addWidget(&progress_, 3, 1);
  layout_.addWidget(&progressText_, 4, 1);
  showProgress(progress);
}

void AlertWindow::showProgress(const ProgressValue& progress) {
  const double fraction = std::clamp(progress.fraction.value_or(0), 0.0, 1.0);
  progress_.setRange(0, progress.fraction ? progressSteps : 0);
  progress_.setValue(static_cast<int>(fraction * progressSteps));
  progress_.setAccessibleDescription(plainText(progress.text));
  progressText_.setText(plainText(progress.text));
}

void AlertWindow::addButtons(const std::vector<std::string>& titles) {
  for (const auto& title : titles) {
    const auto place = static_cast<std::int64_t>(buttons_.size());
    auto& button = buttons_.emplace_back(buttonText(title));
    connect(&button, &QPushButton::clicked, this, [this, place] { answer(answerOf(place)); });
  }
  buttonRow_.setSpacing(spacing / 2);
  buttonRow_.addStretch();
  for (auto* const button : buttonsInOrder()) buttonRow_.addWidget(button);
  layout_.addLayout(&buttonRow_, 5, 0, 1, 2);
  buttons_.front().setDefault(true);
  buttons_.front().setFocus();
}

std::vector<QPushButton*> AlertWindow::buttonsInOrder() {
  std::vector<QPushButton*> order;
  order.reserve(buttons_.size());
  for (auto& button : buttons_) order.push_back(&button);
  const int desktop = style()->styleHint(QStyle::SH_DialogButtonLayout, nullptr, this);
  const bool defaultIsLast = desktop == 1 /* Mac */ || desktop == 3 /* GNOME */;
  if (defaultIsLast) std::ranges::reverse(order);
  return order;
}

}  // namespace zephyl
