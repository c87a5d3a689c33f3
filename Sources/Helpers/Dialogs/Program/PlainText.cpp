#include "Helpers/Dialogs/Program/PlainText.hpp"

#include <QFontMetrics>
#include <QGuiApplication>
#include <QMimeData>
#include <QScrollBar>
#include <QTextDocument>
#include <QTextOption>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <optional>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

/// The margin inside the frame of a scrolling text.
constexpr int scrollingMargin = 6;

/// The height that a window can lose to rounding at a fractional scale such as 1.5.
constexpr int roundingLoss = 1;

/// A longer text is certainly too high, and measuring it is slow.
constexpr int maxMeasuredCharacters = 20'000;

/// The pictures of control characters. In a font without them they all look alike.
constexpr QChar firstPicture{0x2400};
constexpr QChar lastPicture{0x2421};
constexpr QChar escapePicture{0x241B};

/// The length at which words are divided. The toolkit needs seconds to wrap a word of a hundred
/// thousand characters, but no noticeable time for many words of this length.
constexpr int maxWordCharacters = 512;

/// The number of combining marks per character, more than in real text. Further marks are written
/// as escapes. They have no width, so one line would contain them all, and the toolkit needs
/// seconds to draw it.
constexpr int maxMarks = 16;

/// An invisible line-break opportunity. Untrusted text contains none after its characters were made
/// visible.
constexpr QChar breakHere{0x200B};

QString withLongWordsDivided(const QString& text) {
  QString divided;
  divided.reserve(text.size() + text.size() / maxWordCharacters);
  int length = 0;
  int marks = 0;
  for (const char32_t character : text.toUcs4()) {
    marks = QChar::isMark(character) ? marks + 1 : 0;
    length = QChar::isSpace(character) ? 0 : length + 1;
    const bool isEscaped = marks > maxMarks;
    if (length > maxWordCharacters && (marks == 0 || isEscaped)) {
      divided += breakHere;
      length = 1;
    }
    if (isEscaped) {
      divided += QStringLiteral("\\u%1").arg(static_cast<uint>(character), 4, 16, QLatin1Char('0'));
    } else {
      divided += QChar::fromUcs4(character);
    }
  }
  return divided;
}

std::optional<QAbstractSlider::SliderAction> scrollingOf(int key) {
  switch (key) {
    case Qt::Key_Up:
      return QAbstractSlider::SliderSingleStepSub;
    case Qt::Key_Down:
      return QAbstractSlider::SliderSingleStepAdd;
    case Qt::Key_PageUp:
      return QAbstractSlider::SliderPageStepSub;
    case Qt::Key_PageDown:
      return QAbstractSlider::SliderPageStepAdd;
    case Qt::Key_Home:
      return QAbstractSlider::SliderToMinimum;
    case Qt::Key_End:
      return QAbstractSlider::SliderToMaximum;
    default:
      return std::nullopt;
  }
}

bool canShowPictures() {
  return QFontMetrics(QGuiApplication::font()).inFont(escapePicture);
}

void escapePictures(QString& text) {
  const auto isPicture = [](QChar c) { return c >= firstPicture && c <= lastPicture; };
  for (auto at = text.size() - 1; at >= 0; --at) {
    if (!isPicture(text[at])) continue;
    const int picture = text[at].unicode() - firstPicture.unicode();
    const int control = picture == 0x21 ? 0x7F : picture;
    text.replace(at, 1, QStringLiteral("\\x%1").arg(control, 2, 16, QLatin1Char('0')));
  }
}

}  // namespace

QString plainText(const std::string& text) {
  QString shown = QString::fromStdString(visibleLines(text));
  if (!canShowPictures()) escapePictures(shown);
  return shown;
}

QString buttonText(const std::string& text) {
  return plainText(text).replace('&', "&&");
}

void setLeftToRight(QTextDocument& document) {
  QTextOption option = document.defaultTextOption();
  option.setTextDirection(Qt::LeftToRight);
  document.setDefaultTextOption(option);
}

WrappedText::WrappedText(const QString& text, const QFont& font, Room room) {
  setFont(font);
  setReadOnly(true);
  setAcceptRichText(false);
  setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  setTabChangesFocus(true);
  setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setLeftToRight(*document());
  setPlainText(withLongWordsDivided(text));

  const int needed =
      text.size() > maxMeasuredCharacters ? room.maxHeight + 1 : heightAt(room.width);
  if (needed > room.maxHeight) {
    document()->setDocumentMargin(scrollingMargin);
    hint_ = {room.width, room.maxHeight};
    scrolls_ = true;
    return;
  }
  setFrameShape(QFrame::NoFrame);
  viewport()->setAutoFillBackground(false);
  document()->setDocumentMargin(0);
  hint_ = {room.width, needed + roundingLoss};
}

QSize WrappedText::minimumSizeHint() const {
  return {hint_.width() / 2, std::min(hint_.height(), 4 * fontMetrics().lineSpacing())};
}

bool WrappedText::scrollBy(int key) {
  const auto action = scrollingOf(key);
  if (action) verticalScrollBar()->triggerAction(*action);
  return action.has_value();
}

void WrappedText::paintEvent(QPaintEvent* event) {
  QTextEdit::paintEvent(event);
  if (endWasShown_) return;
  const double end = document()->size().height() - document()->documentMargin();
  if (verticalScrollBar()->value() + viewport()->height() < std::floor(end)) return;
  endWasShown_ = true;
  if (onEndShown) QTimer::singleShot(0, this, [this] { onEndShown(); });
}

QMimeData* WrappedText::createMimeDataFromSelection() const {
  auto copied = std::make_unique<QMimeData>();
  // The toolkit separates paragraphs with its own character.
  copied->setText(textCursor().selectedText().remove(breakHere).replace(
      QChar(QChar::ParagraphSeparator), '\n'));
  return copied.release();
}

int WrappedText::heightAt(int width) const {
  const std::unique_ptr<QTextDocument> measured(document()->clone());
  measured->setDefaultFont(font());
  measured->setDocumentMargin(0);
  measured->setTextWidth(width);
  return static_cast<int>(std::ceil(measured->size().height()));
}

}  // namespace zephyl
