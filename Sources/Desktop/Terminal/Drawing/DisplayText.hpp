#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Desktop/Terminal/Drawing/TerminalCapabilities.hpp"

/// Measures and cuts texts by the columns that they occupy on a terminal. A wide character has 2
/// columns, one that combines with the character before it has 0. Widths are those of utf8proc.
/// Texts are UTF-8. Each byte that is not valid UTF-8 counts as one column. All functions are pure.
namespace zephyl::displayText {

/// What is shown in one place: a character and those that combine with it.
struct Glyph {
  std::string_view bytes;
  int width = 1;
};

/// The glyphs of a text, from left to right. They refer to `text`.
std::vector<Glyph> glyphs(std::string_view text);

int width(std::string_view text);

/// `text` as a terminal of this look can show it: without the marks that ask for a picture instead
/// of a character, whose width no two terminals agree on, and where there is no Unicode, in ASCII.
std::string shown(std::string_view text, const TerminalCapabilities& capabilities);

/// As much of `text` as fits, with an ellipsis where something is left out.
std::string cut(std::string_view text, int columns, const TerminalCapabilities& capabilities);

/// The lines of `text`, broken between words so that none is wider than `columns`; words that are
/// wider are broken anywhere. A line that goes on begins where the first one's text did.
std::vector<std::string> wrapped(std::string_view text, int columns);

}  // namespace zephyl::displayText
