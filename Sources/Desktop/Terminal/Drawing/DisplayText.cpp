#include "Desktop/Terminal/Drawing/DisplayText.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include <utf8proc.h>

#include "System/Data/Text.hpp"

namespace zephyl::displayText {

namespace {

/// Returns the columns of a character: 2 if it is wide, 0 if it combines with the one before it.
int widthOf(char32_t character) {
  return utf8proc_charwidth(static_cast<utf8proc_int32_t>(character));
}

/// The ASCII replacement of a character. Symbols become words or marks, and other characters a
/// question mark.
struct Replacement {
  char32_t character;
  std::string_view text;
};
constexpr std::array replacements{
    Replacement{0xA0, " "},     Replacement{0xB7, "*"},     Replacement{0x2010, "-"},
    Replacement{0x2011, "-"},   Replacement{0x2013, "-"},   Replacement{0x2014, "-"},
    Replacement{0x2018, "'"},   Replacement{0x2019, "'"},   Replacement{0x201C, "\""},
    Replacement{0x201D, "\""},  Replacement{0x2022, "*"},   Replacement{0x2026, "..."},
    Replacement{0x2190, "<-"},  Replacement{0x2191, "^"},   Replacement{0x2192, "->"},
    Replacement{0x2193, "v"},   Replacement{0x21B5, "|"},   Replacement{0x25CF, "*"},
    Replacement{0x26A0, "(!)"}, Replacement{0x2713, "yes"},
};

std::string_view replacementOf(char32_t character) {
  const auto* const found = std::ranges::find(replacements, character, &Replacement::character);
  return found == replacements.end() ? "?" : found->text;
}

/// Breaks one line of a text.
class Wrapping {
 public:
  Wrapping(std::string_view line, int columns) : columns_(columns) {
    const auto indent = std::min(line.find_first_not_of(' '), line.size());
    if (static_cast<int>(indent) < columns / 2) indent_ = std::string(indent, ' ');
    for (const auto& glyph : glyphs(line)) append(glyph);
    if (!line_.empty() || lines_.empty()) lines_.push_back(line_);
  }

  std::vector<std::string> result() { return std::move(lines_); }

 private:
  void append(const Glyph& glyph) {
    if (width_ + glyph.width > columns_) {
      if (glyph.bytes == " ") return startLine(line_.size(), line_.size());
      breakLine();
    }
    line_ += glyph.bytes;
    width_ += glyph.width;
    if (glyph.bytes == " " && line_.find_first_not_of(' ') != std::string::npos) {
      afterSpace_ = line_.size();
    }
  }

  void breakLine() {
    if (afterSpace_ > indent_.size()) {
      startLine(line_.find_last_not_of(' ', afterSpace_ - 1) + 1, afterSpace_);
    } else {
      startLine(line_.size(), line_.size());
    }
  }

  void startLine(std::size_t end, std::size_t next) {
    lines_.push_back(line_.substr(0, end));
    line_ = indent_ + line_.substr(next);
    width_ = width(line_);
    afterSpace_ = 0;
  }

  const int columns_;
  std::string indent_;
  std::string line_;
  int width_ = 0;
  std::size_t afterSpace_ = 0;  // the beginning of the line's last word
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<Glyph> glyphs(std::string_view text) {
  std::vector<Glyph> all;
  all.reserve(text.size());
  while (!text.empty()) {
    const auto character = firstCharacter(text);
    const int columns = widthOf(character.code);
    if (columns == 0 && !all.empty()) {
      auto& base = all.back().bytes;
      base = {base.data(), base.size() + character.length};
    } else {
      all.push_back({text.substr(0, character.length), std::max(columns, 1)});
    }
    text.remove_prefix(character.length);
  }
  return all;
}

int width(std::string_view text) {
  int columns = 0;
  for (const auto& glyph : glyphs(text)) columns += glyph.width;
  return columns;
}

std::string shown(std::string_view text, const TerminalCapabilities& capabilities) {
  constexpr char32_t pictureMark = 0xFE0F;
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto character = firstCharacter(text);
    const auto bytes = text.substr(0, character.length);
    text.remove_prefix(character.length);
    if (character.code == pictureMark) continue;
    if (capabilities.unicode || character.code < 0x80) {
      result += bytes;
    } else if (widthOf(character.code) > 0) {
      result += replacementOf(character.code);
    }
  }
  return result;
}

std::string cut(std::string_view text, int columns, const TerminalCapabilities& capabilities) {
  if (width(text) <= columns) return std::string(text);
  const std::string_view ellipsis = capabilities.symbols().ellipsis;
  const int room = columns - width(ellipsis);
  if (room < 0) return std::string(static_cast<std::size_t>(std::max(columns, 0)), '.');
  std::string result;
  int used = 0;
  for (const auto& glyph : glyphs(text)) {
    if (used + glyph.width > room) break;
    result += glyph.bytes;
    used += glyph.width;
  }
  return result.append(ellipsis);
}

std::vector<std::string> wrapped(std::string_view text, int columns) {
  std::vector<std::string> lines;
  for (;;) {
    const auto end = text.find('\n');
    for (auto& line : Wrapping(text.substr(0, end), std::max(columns, 2)).result()) {
      lines.push_back(std::move(line));
    }
    if (end == std::string_view::npos) return lines;
    text.remove_prefix(end + 1);
  }
}

}  // namespace zephyl::displayText
