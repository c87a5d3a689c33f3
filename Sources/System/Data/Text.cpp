#include "System/Data/Text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <utility>

#include "System/Data/Format.hpp"

namespace zephyl {

namespace {

constexpr std::string_view horizontalSpace = " \t";

unsigned char byteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

/// Properties of a multi-byte character that follow from its first byte: its length, and the range
/// of its second byte. That range excludes surrogates, overlong forms and codes beyond U+10FFFF.
/// All further bytes lie between 0x80 and 0xBF.
struct Lead {
  std::size_t length;
  unsigned char lowestSecond = 0x80;
  unsigned char highestSecond = 0xBF;
};

std::optional<Lead> leadOf(unsigned char byte) {
  if (byte < 0xC2 || byte > 0xF4) return std::nullopt;
  if (byte < 0xE0) return Lead{2};
  switch (byte) {
    case 0xE0:
      return Lead{3, 0xA0};
    case 0xED:
      return Lead{3, 0x80, 0x9F};
    case 0xF0:
      return Lead{4, 0x90};
    case 0xF4:
      return Lead{4, 0x80, 0x8F};
    default:
      return Lead{byte < 0xF0 ? 3U : 4U};
  }
}

struct CharacterRange {
  char32_t first;
  char32_t last;
};

/// Characters that are invisible, or change how others are shown: default-ignorable ones, direction
/// and line-break controls, interlinear annotations and noncharacters. U+FE0F is not included,
/// because it is part of many emoji.
constexpr std::array hiddenCharacters{
    CharacterRange{0xAD, 0xAD},       CharacterRange{0x34F, 0x34F},
    CharacterRange{0x61C, 0x61C},     CharacterRange{0x115F, 0x1160},
    CharacterRange{0x17B4, 0x17B5},   CharacterRange{0x180B, 0x180F},
    CharacterRange{0x200B, 0x200F},   CharacterRange{0x2028, 0x202E},
    CharacterRange{0x2060, 0x206F},   CharacterRange{0x3164, 0x3164},
    CharacterRange{0xFDD0, 0xFDEF},   CharacterRange{0xFE00, 0xFE0E},
    CharacterRange{0xFEFF, 0xFEFF},   CharacterRange{0xFFA0, 0xFFA0},
    CharacterRange{0xFFF0, 0xFFFC},   CharacterRange{0xFFFE, 0xFFFF},
    CharacterRange{0x1BCA0, 0x1BCA3}, CharacterRange{0x1D173, 0x1D17A},
    CharacterRange{0xE0000, 0xE0FFF},
};

/// Printable characters, other than the space, that have no visible mark.
constexpr std::array blankCharacters{
    CharacterRange{0xA0, 0xA0},       CharacterRange{0x1680, 0x1680},
    CharacterRange{0x2000, 0x200A},   CharacterRange{0x202F, 0x202F},
    CharacterRange{0x205F, 0x205F},   CharacterRange{0x2800, 0x2800},
    CharacterRange{0x3000, 0x3000},   CharacterRange{0x13441, 0x13442},
    CharacterRange{0x16FE4, 0x16FE4}, CharacterRange{0x1D159, 0x1D159},
};

bool isIn(const auto& ranges, char32_t character) {
  const auto* const range = std::ranges::lower_bound(ranges, character, {}, &CharacterRange::last);
  return range != ranges.end() && range->first <= character;
}

/// The beginning of a text: a run of printable characters, one control character, one other
/// invisible character, or one byte that is not valid UTF-8.
struct Piece {
  enum class Kind { printable, control, hidden, invalid };
  Kind kind;
  std::size_t length;
};

Piece pieceOf(Character character) {
  using Kind = Piece::Kind;
  if (!character.isValid()) return {Kind::invalid, 1};
  const auto code = character.code;
  if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return {Kind::control, character.length};
  const bool hidden = code >= 0xA0 && isIn(hiddenCharacters, code);
  return {hidden ? Kind::hidden : Kind::printable, character.length};
}

/// Joins a run of printable characters, so that plain text is one piece.
Piece firstPiece(std::string_view text) {
  Piece piece = pieceOf(firstCharacter(text));
  while (piece.kind == Piece::Kind::printable && piece.length < text.size()) {
    const Piece next = pieceOf(firstCharacter(text.substr(piece.length)));
    if (next.kind != Piece::Kind::printable) break;
    piece.length += next.length;
  }
  return piece;
}

void appendPicture(Character character, std::string& out) {
  const std::uint32_t code = character.code;
  if (character.length == 1) {
    const std::uint32_t picture = code == 0x7F ? 0x21 : code;  // from U+2400 on
    out.append("\xE2\x90").push_back(static_cast<char>(0x80 + picture));
  } else if (character.length < 4) {
    out += formatText("\\u{:04x}", code);
  } else {
    out += formatText("\\U{:08x}", code);
  }
}

bool isBlankCharacter(Character character) {
  return character.isValid() && (character.code == ' ' || isIn(blankCharacters, character.code));
}

/// Returns how often `text` repeats its first character at its beginning.
std::size_t firstRun(std::string_view text, std::size_t characterLength) {
  const auto character = text.substr(0, characterLength);
  std::size_t count = 0;
  while (text.starts_with(character)) {
    text.remove_prefix(characterLength);
    ++count;
  }
  return count;
}

void appendBlanks(Character character, std::size_t count, std::string& out) {
  constexpr std::size_t longestPlainRun = 3;
  const bool isLong = count > longestPlainRun;
  if (character.code == ' ' && !isLong) {
    out.append(count, ' ');
    return;
  }
  for (std::size_t i = 0; i < (isLong ? 1 : count); ++i) {
    if (character.code == ' ') {
      out.append("␠");
    } else {
      appendPicture(character, out);
    }
  }
  if (isLong) out += formatText("×{}", count);
}

template <typename Piece>
std::string joinedPieces(std::span<const Piece> pieces, std::string_view separator) {
  std::string text;
  for (const auto& piece : pieces) {
    if (&piece != pieces.data()) text += separator;
    text += piece;
  }
  return text;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(horizontalSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(horizontalSpace) - first + 1);
}

bool isBlank(std::string_view text) {
  return text.find_first_not_of(horizontalSpace) == std::string_view::npos;
}

std::string lowerCased(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return lower;
}

std::string upperCased(std::string_view text) {
  std::string upper(text);
  for (char& letter : upper) {
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
  return upper;
}

std::vector<std::string_view> splitNonEmpty(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const auto end = text.find(separator);
    const auto piece = text.substr(0, end);
    if (!piece.empty()) pieces.push_back(piece);
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::string joined(std::span<const std::string> pieces, std::string_view separator) {
  return joinedPieces(pieces, separator);
}

std::string joined(std::span<const std::string_view> pieces, std::string_view separator) {
  return joinedPieces(pieces, separator);
}

std::string hexadecimal(std::span<const unsigned char> bytes) {
  std::string digits;
  digits.reserve(2 * bytes.size());
  for (const auto byte : bytes) digits += formatText("{:02x}", byte);
  return digits;
}

std::optional<long long> parseDecimal(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  long long number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, number);
  if (failure != std::errc() || stop != end) return std::nullopt;
  return number;
}

Character firstCharacter(std::string_view text) {
  constexpr Character invalid{0xFFFD, 1};
  const unsigned char first = byteAt(text, 0);
  if (first < 0x80) return {first, 1};
  const auto lead = leadOf(first);
  if (!lead || text.size() < lead->length) return invalid;
  const unsigned char second = byteAt(text, 1);
  if (second < lead->lowestSecond || second > lead->highestSecond) return invalid;
  char32_t code = first & (0xFFU >> (lead->length + 1));
  for (std::size_t index = 1; index < lead->length; ++index) {
    if ((byteAt(text, index) & 0xC0) != 0x80) return invalid;
    code = (code << 6U) | (byteAt(text, index) & 0x3FU);
  }
  return {code, lead->length};
}

bool isValidUTF8(std::string_view text) {
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    if (!character.isValid()) return false;
    text.remove_prefix(character.length);
  }
  return true;
}

std::string visible(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Piece piece = firstPiece(text);
    switch (piece.kind) {
      case Piece::Kind::printable:
        out.append(text, 0, piece.length);
        break;
      case Piece::Kind::control:
      case Piece::Kind::hidden:
        appendPicture(firstCharacter(text), out);
        break;
      case Piece::Kind::invalid:
        out.append("\uFFFD");
        break;
    }
    text.remove_prefix(piece.length);
  }
  return out;
}

std::string visibleLines(std::string_view text) {
  std::string out;
  for (;;) {
    const auto end = text.find('\n');
    out += visible(text.substr(0, end));
    if (end == std::string_view::npos) return out;
    out += '\n';
    text.remove_prefix(end + 1);
  }
}

std::string visibleWithBlanks(std::string_view text) {
  std::string out;
  std::size_t plain = 0;  // bytes before the next run of blanks
  const auto flush = [&] {
    out += visible(text.substr(0, plain));
    text.remove_prefix(std::exchange(plain, 0));
  };
  while (plain < text.size()) {
    const auto character = firstCharacter(text.substr(plain));
    if (!isBlankCharacter(character)) {
      plain += character.length;
      continue;
    }
    flush();
    const auto count = firstRun(text, character.length);
    appendBlanks(character, count, out);
    text.remove_prefix(count * character.length);
  }
  flush();
  return out;
}

std::string shortened(std::string_view text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return std::string(text);
  constexpr std::size_t longestCharacter = 4;
  std::size_t end = maxBytes;
  for (std::size_t back = 0; back < longestCharacter && back <= maxBytes; ++back) {
    const bool continues = (byteAt(text, maxBytes - back) & 0xC0) == 0x80;
    if (continues) continue;
    end = maxBytes - back;
    break;
  }
  return formatText("{}… [{} bytes left out]", text.substr(0, end), text.size() - end);
}

std::string withoutControlCharacters(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Piece piece = firstPiece(text);
    const bool kept = piece.kind == Piece::Kind::printable || piece.kind == Piece::Kind::hidden;
    if (kept) out.append(text, 0, piece.length);
    text.remove_prefix(piece.length);
  }
  return out;
}

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char character : text) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted += character;
    }
  }
  return quoted + "'";
}

}  // namespace zephyl
