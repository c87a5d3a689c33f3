#pragma once

#include <string>
#include <vector>

#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/Key.hpp"

namespace zephyl {

/// A text of many lines in an area that may be smaller. Lines that are too wide go on below. When
/// its end is on screen and more comes, it follows. Pure.
class ScrollingText {
 public:
  /// Lines as they are to be shown; what is on screen stays there.
  void setLines(std::vector<std::string> lines);
  void toEnd() { follows_ = true; }

  /// Whether the key was one for scrolling.
  bool handle(const Key& key);
  /// The lowest `covered` rows of the area are drawn over by the caller.
  void draw(Canvas& canvas, const Area& area, int covered = 0);
  /// How many rows the text takes at a width.
  [[nodiscard]] int rowsAt(int columns);
  /// Whether the end of the text has been drawn.
  [[nodiscard]] bool endWasDrawn() const { return endWasDrawn_; }

 private:
  void wrapFor(int columns);
  void scrollBy(int rows);
  [[nodiscard]] int furthest() const;

  std::vector<std::string> lines_;
  std::vector<std::string> wrapped_;
  int wrappedAt_ = 0;  // the width; 0 when it is to be done again
  int top_ = 0;
  int height_ = 1;
  bool follows_ = false;
  bool endWasDrawn_ = false;
};

}  // namespace zephyl
