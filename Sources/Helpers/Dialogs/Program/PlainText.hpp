#pragma once

#include <QSize>
#include <QString>
#include <QTextEdit>
#include <functional>
#include <string>

namespace zephyl {

/// Returns untrusted text for display: invisible characters are made visible, and markup has no
/// effect.
QString plainText(const std::string& text);
/// Does the same for a button, where an ampersand would mark a shortcut.
QString buttonText(const std::string& text);
/// Makes lines run from left to right, even those that begin with a word of a right-to-left script.
/// The order of a path's names or a command's words would otherwise be reversed.
void setLeftToRight(QTextDocument& document);

/// A selectable text without markup. Takes the size that it needs at a given width, breaks words
/// that are longer than a line, and scrolls if it would be too high.
class WrappedText final : public QTextEdit {
 public:
  struct Room {
    int width = 0;
    int maxHeight = 0;
  };

  WrappedText(const QString& text, const QFont& font, Room room);

  [[nodiscard]] QSize sizeHint() const override { return hint_; }
  [[nodiscard]] QSize minimumSizeHint() const override;

  /// Returns whether the text must be scrolled because it does not fit.
  [[nodiscard]] bool scrolls() const { return scrolls_; }
  /// Returns whether the end of the text was on screen.
  [[nodiscard]] bool endWasShown() const { return endWasShown_; }
  /// Called once when the end of the text was on screen.
  std::function<void()> onEndShown;
  /// Scrolls if `key` is a scrolling key, and returns whether it is.
  bool scrollBy(int key);

 protected:
  void paintEvent(QPaintEvent* event) override;
  /// Copies plain text.
  [[nodiscard]] QMimeData* createMimeDataFromSelection() const override;

 private:
  /// Returns the height of the text at a given width.
  [[nodiscard]] int heightAt(int width) const;

  QSize hint_;
  bool scrolls_ = false;
  bool endWasShown_ = false;
};

}  // namespace zephyl
