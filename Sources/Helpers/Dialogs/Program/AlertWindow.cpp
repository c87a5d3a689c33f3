#include "Helpers/Dialogs/Program/AlertWindow.hpp"

#include <QKeyEvent>
#include <QStyle>
#include <algorithm>

#include "Helpers/Dialogs/Program/Screens.hpp"
#include "Helpers/Dialogs/Program/Symbol.hpp"

namespace zephyl {

namespace {

constexpr int margin = 20;
constexpr int spacing = 12;
constexpr int gapBesideIcon = 16;
constexpr int iconSize = 48;
constexpr int textWidth = 460;
constexpr int progressSteps = 1000;

/// An answer is a typed line, so a very long pasted text is cut.
constexpr int maxTypedCharacters = 4096;

QFont messageFont(QFont font) {
  font.setBold(true);
  font.setPointSizeF(font.pointSizeF() * 1.1);
  return font;
}

/// Limits the size of a text to a part of the smallest screen.
WrappedText::Room roomFor(double shareOfHeight) {
  const QSize screen = roomOnEveryScreen();
  return {std::min(textWidth, screen.width() * 2 / 3),
          static_cast<int>(screen.height() * shareOfHeight)};
}

WindowGuard::Policy shieldingOf(const Alert& alert) {
  if (!alert.requestedByUser) return WindowGuard::Policy::always;
  return alert.permittingButtons.empty() ? WindowGuard::Policy::never
                                         : WindowGuard::Policy::afterReturning;
}

}  // namespace

AlertWindow::AlertWindow(Conversation& conversation, const Alert& alert)
    : DialogWindow(conversation, shieldingOf(alert)),
      safeButton_(alert.safeButton),
      permittingButtons_(alert.permittingButtons),
      message_(plainText(alert.heading), messageFont(font()), roomFor(0.2)),
      information_(plainText(alert.explanation), font(), roomFor(0.4)) {
  setWindowTitle(QStringLiteral("Zephyl"));
  setAccessibleName(plainText(alert.heading));
  setAccessibleDescription(plainText(alert.explanation));
  icon_.setPixmap(symbolOf(alert.style, iconSize, devicePixelRatio()));
  icon_.setAccessibleName(nameOfSymbol(alert.style));
  message_.setAccessibleName(QStringLiteral("Message"));
  information_.setAccessibleName(QStringLiteral("Details"));

  layout_.setContentsMargins(margin, margin, margin, margin);
  layout_.setHorizontalSpacing(gapBesideIcon);
  layout_.setVerticalSpacing(spacing);
  layout_.setColumnStretch(1, 1);
  layout_.setRowStretch(1, 1);
  layout_.addWidget(&icon_, 0, 0, 2, 1, Qt::AlignTop);
  layout_.addWidget(&message_, 0, 1);
  if (!alert.explanation.empty()) layout_.addWidget(&information_, 1, 1);
  addButtons(alert.buttons);
  if (alert.textField) addTextField(*alert.textField);
  if (alert.progress) addProgress(*alert.progress);
  if (!permittingButtons_.empty()) requireReading();
  acceptInput(acceptsInput());
  const QSize size = sizeHint();  // the toolkit's default is too large for small screens
  setFixedWidth(size.width());    // makes tiling window managers let it float
  resize(size);
}

DialogReport AlertWindow::answerOf(std::size_t button) const {
  return AlertAnswer{button, textField_.text().toStdString()};
}

void AlertWindow::addTextField(const Alert::TextField& field) {
  textField_.setPlaceholderText(plainText(field.placeholder));
  textField_.setAccessibleName(plainText(field.placeholder));
  textField_.setMaxLength(maxTypedCharacters);
  textField_.setMinimumWidth(std::clamp(field.width, 0, textWidth));
  layout_.addWidget(&textField_, 2, 1, Qt::AlignLeft);
  if (information_.parentWidget() != nullptr) setTabOrder(&information_, &textField_);
  textField_.setFocus();
}

void AlertWindow::addProgress(const Progress& progress) {
  progress_.setAccessibleName(QStringLiteral("Progress"));
  progress_.setTextVisible(false);
  progress_.setMinimumWidth(std::min(textWidth, roomFor(1).width));
  progressText_.setTextFormat(Qt::PlainText);
  layout_.addWidget(&progress_, 3, 1);
  layout_.addWidget(&progressText_, 4, 1);
  showProgress(progress);
}

void AlertWindow::showProgress(const Progress& progress) {
  const double fraction = std::clamp(progress.fraction.value_or(0), 0.0, 1.0);
  progress_.setRange(0, progress.fraction ? progressSteps : 0);
  progress_.setValue(static_cast<int>(fraction * progressSteps));
  progress_.setAccessibleDescription(plainText(progress.text));
  progressText_.setText(plainText(progress.text));
}

void AlertWindow::addButtons(const std::vector<std::string>& titles) {
  for (const auto& title : titles) {
    const std::size_t place = buttons_.size();
    auto& button = buttons_.emplace_back(buttonText(title));
    connect(&button, &QPushButton::clicked, this, [this, place] { answer(answerOf(place)); });
  }
  buttonRow_.setSpacing(spacing / 2);
  buttonRow_.addStretch();
  for (auto* const button : buttonsInOrder()) buttonRow_.addWidget(button);
  layout_.addLayout(&buttonRow_, 6, 0, 1, 2);
  buttons_.front().setDefault(true);
  buttons_.front().setFocus();
}

void AlertWindow::requireReading() {
  for (auto& button : buttons_) button.installEventFilter(this);
  message_.onEndShown = information_.onEndShown = [this] { updateButtons(); };
  if (!message_.scrolls() && !information_.scrolls()) return;
  // The hint keeps its space when it is hidden, so that no button moves under the pointer.
  auto policy = readingHint_.sizePolicy();
  policy.setRetainSizeWhenHidden(true);
  readingHint_.setSizePolicy(policy);
  readingHint_.setWordWrap(true);
  readingHint_.setText(QStringLiteral("Scroll to the end of the text before you allow this."));
  layout_.addWidget(&readingHint_, 5, 1);
}

bool AlertWindow::wasRead() const {
  return message_.endWasShown() && (information_.endWasShown() || information_.isHidden());
}

void AlertWindow::updateButtons() {
  const bool read = wasRead();
  for (std::size_t place = 0; place < buttons_.size(); ++place) {
    const bool permits = std::ranges::find(permittingButtons_, place) != permittingButtons_.end();
    auto& button = buttons_[place];
    button.setEnabled(acceptsInput() && (read || !permits));
    if (!permits) continue;
    button.setAccessibleDescription(read ? QString() : readingHint_.text());
  }
  if (read) readingHint_.hide();
}

void AlertWindow::acceptInput(bool accepts) {
  updateButtons();
  if (!accepts) return;
  if (textField_.parentWidget() != nullptr) {
    textField_.setFocus();
  } else {
    buttons_.front().setFocus();
  }
}

/// Arrow keys scroll the text instead of moving the focus between buttons.
bool AlertWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() != QEvent::KeyPress || !watched->isWidgetType()) {
    return DialogWindow::eventFilter(watched, event);
  }
  const int key = static_cast<const QKeyEvent*>(event)->key();
  if (key == Qt::Key_Left || key == Qt::Key_Right) return true;
  return information_.scrollBy(key) || DialogWindow::eventFilter(watched, event);
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
