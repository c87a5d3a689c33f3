#pragma once

#include <string>

#include "Desktop/Terminal/Drawing/Canvas.hpp"

namespace zephyl::test {

/// Returns the text of a row without trailing spaces.
inline std::string rowText(const Canvas& canvas, int row) {
  std::string text;
  for (int column = 0; column < canvas.size().columns; ++column) {
    text += canvas.at(row, column).text();
  }
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// Returns all rows without trailing empty ones.
inline std::string canvasText(const Canvas& canvas) {
  std::string text;
  for (int row = 0; row < canvas.size().rows; ++row) text += rowText(canvas, row) + "\n";
  return text.substr(0, text.find_last_not_of('\n') + 1);
}

}  // namespace zephyl::test
