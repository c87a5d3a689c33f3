#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Terminal/Drawing/TerminalCapabilities.hpp"

/// Measures and cuts texts by the columns that they occupy on a terminal. A wide character has 2
/// columns, one that combines with the character before it has 0. Widths are those of utf8proc.
/// Texts are UTF-8. Each byte that is not valid UTF-8 counts as one column. All functions are pure.
namespace zephyl::displayText {

/// A character with its combining characters.
struct Glyph {
  std::string_view bytes;
  int width = 1;
};

/// Returns the glyphs of a text from left to right. They refer to `text`.
std::vector<Glyph> glyphs(std::string_view text);

int width(std::string_view text);

/// Returns `text` in a form that the terminal can show: without variation selectors that request a
/// picture, whose width differs between terminals, and in ASCII if there is no Unicode.
std::string shown(std::string_view text, const TerminalCapabilities& capabilities);

/// Returns as much of `text` as fits, with an ellipsis if something is left out.
std::string cut(std::string_view text, int columns, const TerminalCapabilities& capabilities);

/// Returns the lines of `text`, broken between words so that no line is wider than `columns`. Wider
/// words are broken anywhere. Continuation lines have the indentation of the first line.
std::vector<std::string> wrapped(std::string_view text, int columns);

}  // namespace zephyl::displayText
