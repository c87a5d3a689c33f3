#pragma once

#include <string>
#include <vector>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/Key.hpp"

namespace zephyl {

/// A text of many lines in an area that may be smaller. Lines that are too wide are wrapped. If the
/// end is on screen and lines are added, it scrolls to the new end. Pure.
class ScrollingText {
 public:
  /// Sets the lines. The position on screen is kept.
  void setLines(std::vector<std::string> lines);
  void toEnd() { follows_ = true; }

  /// Scrolls if `key` is a scrolling key, and returns whether it is.
  bool handle(const Key& key);
  /// Draws the text. The caller draws over the lowest `covered` rows of the area.
  void draw(Canvas& canvas, const Area& area, int covered = 0);
  /// Returns the number of rows at a width.
  [[nodiscard]] int rowsAt(int columns);
  /// Returns whether the end of the text was drawn.
  [[nodiscard]] bool endWasDrawn() const { return endWasDrawn_; }

 private:
  void wrapFor(int columns);
  void scrollBy(int rows);
  [[nodiscard]] int furthest() const;

  std::vector<std::string> lines_;
  std::vector<std::string> wrapped_;
  int wrappedAt_ = 0;  // the wrapping width; 0 if lines must be wrapped again
  int top_ = 0;
  int height_ = 1;
  bool follows_ = false;
  bool endWasDrawn_ = false;
};

}  // namespace zephyl
