#pragma once

#include <QSize>
#include <QString>
#include <QTextEdit>
#include <functional>
#include <string>

namespace zephyl {

/// A text from outside as it is shown: whatever it holds can be seen, and nothing of it acts.
QString plainText(const std::string& text);
/// The same for a button, where an ampersand would mark a key.
QString buttonText(const std::string& text);

/// A text without markup that can be selected. It takes the room that it needs at a given width,
/// breaks words that are longer than a line, and scrolls what would be too high.
class WrappedText final : public QTextEdit {
 public:
  struct Room {
    int width = 0;
    int maxHeight = 0;
  };

  WrappedText(const QString& text, const QFont& font, Room room);

  [[nodiscard]] QSize sizeHint() const override { return hint_; }
  [[nodiscard]] QSize minimumSizeHint() const override;

  /// Whether the text needs more room than it got, so that it has to be scrolled.
  [[nodiscard]] bool scrolls() const { return scrolls_; }
  /// Whether the end of the text has been on screen.
  [[nodiscard]] bool endWasShown() const { return endWasShown_; }
  /// Called once, when the end of the text has been on screen.
  std::function<void()> onEndShown;
  /// Scrolls if the key is one for scrolling, and returns whether it is.
  bool scrollBy(int key);

 protected:
  void paintEvent(QPaintEvent* event) override;
  /// What is copied is plain, too.
  [[nodiscard]] QMimeData* createMimeDataFromSelection() const override;

 private:
  /// How high the text is when it is so wide.
  [[nodiscard]] int heightAt(int width) const;

  QSize hint_;
  bool scrolls_ = false;
  bool endWasShown_ = false;
};

}  // namespace zephyl
