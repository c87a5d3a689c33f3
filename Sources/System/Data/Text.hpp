#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zephyl {

/// Returns `text` without the spaces and tabs at both ends. Newlines stay.
std::string_view trimmed(std::string_view text);

/// Returns whether `text` consists of spaces and tabs alone.
bool isBlank(std::string_view text);

/// Return `text` with its ASCII letters in lower or upper case.
std::string lowerCased(std::string_view text);
std::string upperCased(std::string_view text);

/// Returns the non-empty pieces between separators.
std::vector<std::string_view> splitNonEmpty(std::string_view text, char separator);

/// Returns the pieces in order, with `separator` between each two.
std::string joined(std::span<const std::string> pieces, std::string_view separator);
std::string joined(std::span<const std::string_view> pieces, std::string_view separator);

/// Returns two lower-case hexadecimal digits for each byte.
std::string hexadecimal(std::span<const unsigned char> bytes);

/// Parses the whole text as a decimal integer of 64 bits: an optional sign and digits, nothing
/// else.
std::optional<long long> parseDecimal(std::string_view text);

/// A character of a text in UTF-8. Each byte that is not part of valid UTF-8 is a character of its
/// own with the code U+FFFD.
struct Character {
  char32_t code;
  std::size_t length;  ///< in bytes

  [[nodiscard]] bool isValid() const { return code != 0xFFFD || length > 1; }
};

/// Returns the first character of `text`, which must not be empty.
Character firstCharacter(std::string_view text);

bool isValidUTF8(std::string_view text);

/// Returns `text` with control characters replaced by pictures (␀ to ␟, ␡; C1 controls as
/// "\u0085"), other characters that are invisible or change the writing direction by "\u202e" or
/// "\U000e0041", and bytes that are not valid UTF-8 by U+FFFD. For displaying untrusted text.
std::string visible(std::string_view text);
/// Does the same for a text of several lines: newlines stay.
std::string visibleLines(std::string_view text);

/// Does the same as `visible`, and also writes blank characters other than the space as "\u00a0". A
/// run of more than three equal blank characters, spaces included, is written as one character and
/// a count, as in "␠×5000". For text that must be read completely before it is granted.
std::string visibleWithBlanks(std::string_view text);

/// Returns `text` if it has at most `maxBytes` bytes. Otherwise returns its beginning, cut between
/// two characters, followed by a mark with the number of bytes left out. The mark is not counted in
/// `maxBytes`.
std::string shortened(std::string_view text, std::size_t maxBytes);

/// Returns `text` without control characters (C0, DEL and C1) and without bytes that are not valid
/// UTF-8, which could otherwise join to a new character.
std::string withoutControlCharacters(std::string_view text);

/// Returns `text` in single quotes for a POSIX shell.
std::string shellQuoted(std::string_view text);

}  // namespace zephyl
