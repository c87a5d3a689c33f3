#include "Desktop/Terminal/Drawing/DisplayText.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "System/Data/Text.hpp"

namespace zephyl::displayText {

namespace {

struct CharacterRange {
  char32_t first;
  char32_t last;
};

constexpr std::array combining{
    CharacterRange{0x300, 0x36F},     CharacterRange{0x483, 0x489},
    CharacterRange{0x591, 0x5BD},     CharacterRange{0x610, 0x61A},
    CharacterRange{0x64B, 0x65F},     CharacterRange{0x6D6, 0x6DC},
    CharacterRange{0x93C, 0x93C},     CharacterRange{0x941, 0x948},
    CharacterRange{0x94D, 0x94D},     CharacterRange{0xE31, 0xE31},
    CharacterRange{0xE34, 0xE3A},     CharacterRange{0xE47, 0xE4E},
    CharacterRange{0x1AB0, 0x1AFF},   CharacterRange{0x1DC0, 0x1DFF},
    CharacterRange{0x200B, 0x200F},   CharacterRange{0x20D0, 0x20FF},
    CharacterRange{0x302A, 0x302D},   CharacterRange{0x3099, 0x309A},
    CharacterRange{0xFE00, 0xFE0F},   CharacterRange{0xFE20, 0xFE2F},
    CharacterRange{0x1F3FB, 0x1F3FF}, CharacterRange{0xE0100, 0xE01EF},
};

constexpr std::array wide{
    CharacterRange{0x1100, 0x115F},   CharacterRange{0x231A, 0x231B},
    CharacterRange{0x23E9, 0x23EC},   CharacterRange{0x25FD, 0x25FE},
    CharacterRange{0x2614, 0x2615},   CharacterRange{0x2648, 0x2653},
    CharacterRange{0x26A1, 0x26A1},   CharacterRange{0x26AA, 0x26AB},
    CharacterRange{0x26BD, 0x26BE},   CharacterRange{0x26C4, 0x26C5},
    CharacterRange{0x26D4, 0x26D4},   CharacterRange{0x2705, 0x2705},
    CharacterRange{0x270A, 0x270B},   CharacterRange{0x2728, 0x2728},
    CharacterRange{0x274C, 0x274C},   CharacterRange{0x2753, 0x2757},
    CharacterRange{0x2795, 0x2797},   CharacterRange{0x2B1B, 0x2B1C},
    CharacterRange{0x2B50, 0x2B50},   CharacterRange{0x2E80, 0x303E},
    CharacterRange{0x3041, 0xA4CF},   CharacterRange{0xA960, 0xA97C},
    CharacterRange{0xAC00, 0xD7A3},   CharacterRange{0xF900, 0xFAFF},
    CharacterRange{0xFE30, 0xFE6F},   CharacterRange{0xFF00, 0xFF60},
    CharacterRange{0xFFE0, 0xFFE6},   CharacterRange{0x1F300, 0x1F64F},
    CharacterRange{0x1F680, 0x1F6FF}, CharacterRange{0x1F7E0, 0x1F7EB},
    CharacterRange{0x1F900, 0x1FAFF}, CharacterRange{0x20000, 0x3FFFD},
};

/// What stands for a character where there is only ASCII. Symbols that people read as words or
/// marks; letters with accents lose them.
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

bool isIn(const auto& ranges, char32_t character) {
  const auto* const range = std::ranges::lower_bound(ranges, character, {}, &CharacterRange::last);
  return range != ranges.end() && range->first <= character;
}

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
    for (const auto& glyph : glyphs(line)) take(glyph);
    if (!line_.empty() || lines_.empty()) lines_.push_back(line_);
  }

  std::vector<std::string> take() { return std::move(lines_); }

 private:
  void take(const Glyph& glyph) {
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
  std::size_t afterSpace_ = 0;  // where the line's last word begins
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<Glyph> glyphs(std::string_view text) {
  std::vector<Glyph> all;
  all.reserve(text.size());
  while (!text.empty()) {
    const auto character = firstCharacter(text);
    if (isIn(combining, character.code) && !all.empty()) {
      auto& base = all.back().bytes;
      base = {base.data(), base.size() + character.length};
    } else {
      all.push_back({text.substr(0, character.length), isIn(wide, character.code) ? 2 : 1});
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

std::string shown(std::string_view text, const Look& look) {
  constexpr char32_t pictureMark = 0xFE0F;
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto character = firstCharacter(text);
    const auto bytes = text.substr(0, character.length);
    text.remove_prefix(character.length);
    if (character.code == pictureMark) continue;
    if (look.unicode || character.code < 0x80) {
      result += bytes;
    } else if (!isIn(combining, character.code)) {
      result += replacementOf(character.code);
    }
  }
  return result;
}

std::string cut(std::string_view text, int columns, const Look& look) {
  if (width(text) <= columns) return std::string(text);
  const std::string_view ellipsis = look.symbols().ellipsis;
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
    for (auto& line : Wrapping(text.substr(0, end), std::max(columns, 2)).take()) {
      lines.push_back(std::move(line));
    }
    if (end == std::string_view::npos) return lines;
    text.remove_prefix(end + 1);
  }
}

}  // namespace zephyl::displayText
