#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zephyl {

/// `text` without the spaces and tabs at both ends; newlines stay.
std::string_view trimmed(std::string_view text);

/// Whether nothing is left of `text` when trimmed.
bool isBlank(std::string_view text);

/// `text` with its ASCII letters in lower, or in upper case.
std::string lowerCased(std::string_view text);
std::string upperCased(std::string_view text);

/// The pieces between `separator`; empty pieces are dropped.
std::vector<std::string_view> splitNonEmpty(std::string_view text, char separator);

/// Returns the pieces in order, with `separator` between each two.
std::string joined(std::span<const std::string> pieces, std::string_view separator);
std::string joined(std::span<const std::string_view> pieces, std::string_view separator);

/// Returns two lower-case hexadecimal digits for each byte.
std::string hexadecimal(std::span<const unsigned char> bytes);

/// The whole text as a decimal integer: one optional sign, digits, nothing else, within 64 bits.
std::optional<long long> parseDecimal(std::string_view text);

/// A character of a text in UTF-8. Of what is no UTF-8, each byte stands for one, with U+FFFD for
/// its code.
struct Character {
  char32_t code;
  std::size_t length;  ///< in bytes

  [[nodiscard]] bool isValid() const { return code != 0xFFFD || length > 1; }
};

/// The character that `text`, which is not empty, begins with.
Character firstCharacter(std::string_view text);

bool isValidUTF8(std::string_view text);

/// `text` with control characters written as pictures (␀ to ␟, ␡; C1 controls as "\u0085"), others
/// that cannot be seen or turn the direction of writing as "\u202e" or "\U000e0041", and bytes that
/// are no UTF-8 as U+FFFD, for showing what came from outside.
std::string visible(std::string_view text);
/// The same for a text of several lines: newlines stay.
std::string visibleLines(std::string_view text);

/// `visible`, and blank characters other than the space written as "\u00a0" as well; of more than
/// three equal blank characters in a row, spaces included, one is written with their number, as in
/// "␠×5000". For text that must be read completely before it is granted.
std::string visibleWithBlanks(std::string_view text);

/// `text` if it has at most `maxBytes` bytes. Otherwise its beginning, cut between two characters,
/// and a mark that gives the number of bytes left out; the mark comes on top of `maxBytes`.
std::string shortened(std::string_view text, std::size_t maxBytes);

/// `text` without control characters (C0, DEL and C1). Bytes that are no UTF-8 go as well: what is
/// left beside a removed character could make one.
std::string withoutControlCharacters(std::string_view text);

/// `text` in single quotes for a POSIX shell.
std::string shellQuoted(std::string_view text);

}  // namespace zephyl
