#include "Dialogs/PlainText.hpp"

#include <QTextDocument>
#include <algorithm>
#include <cmath>

#include "System/Text.hpp"

namespace zephyl {

namespace {

/// Inside the frame of a text that scrolls.
constexpr int scrollingMargin = 6;

/// A longer text is surely too high, and takes long to measure.
constexpr int maxMeasuredCharacters = 20'000;

}  // namespace

QString plainText(const std::string& text) {
  return QString::fromStdString(visibleLines(text));
}

QString buttonText(const std::string& text) {
  return plainText(text).replace('&', "&&");
}

WrappedText::WrappedText(const QString& text, const QFont& font, Room room) {
  setFont(font);
  setReadOnly(true);
  setAcceptRichText(false);
  setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  setTabChangesFocus(true);
  setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setPlainText(text);

  const int needed =
      text.size() > maxMeasuredCharacters ? room.maxHeight + 1 : heightAt(room.width);
  if (needed > room.maxHeight) {
    document()->setDocumentMargin(scrollingMargin);
    hint_ = {room.width, room.maxHeight};
    return;
  }
  setFrameShape(QFrame::NoFrame);
  setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  viewport()->setAutoFillBackground(false);
  document()->setDocumentMargin(0);
  hint_ = {room.width, needed};
}

QSize WrappedText::minimumSizeHint() const {
  return {hint_.width() / 2, std::min(hint_.height(), 4 * fontMetrics().lineSpacing())};
}

int WrappedText::heightAt(int width) const {
  const std::unique_ptr<QTextDocument> measured(document()->clone());
  measured->setDefaultFont(font());
  measured->setDocumentMargin(0);
  measured->setTextWidth(width);
  return static_cast<int>(std::ceil(measured->size().height()));
}

}  // namespace zephyl
