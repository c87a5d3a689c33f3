#include "System/Data/Text.hpp"

#include <climits>
#include <cstdint>
#include <tuple>

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace zephyl {
namespace {

TEST(Text, TrimsSpacesAndTabsButNotNewlines) {
  EXPECT_EQ(trimmed(" \t a b\t "), "a b");
  EXPECT_EQ(trimmed(" \na\n "), "\na\n");
  EXPECT_EQ(trimmed(" \t "), "");
  EXPECT_EQ(trimmed(""), "");
}

TEST(Text, IsBlankIfItContainsOnlyBlanks) {
  EXPECT_TRUE(isBlank(""));
  EXPECT_TRUE(isBlank(" \t"));
  EXPECT_FALSE(isBlank(" \n"));
  EXPECT_FALSE(isBlank(" x "));
}

TEST(Text, ConvertsOnlyASCIILettersToLowerCase) {
  EXPECT_EQ(lowerCased("aB-Z@[É"), "ab-z@[É");
  EXPECT_EQ(upperCased("aB-z`{é"), "AB-Z`{é");
}

TEST(Text, SplitsIntoNonEmptyPieces) {
  using Pieces = std::vector<std::string_view>;
  EXPECT_EQ(splitNonEmpty("127..0.", '.'), (Pieces{"127", "0"}));
  EXPECT_EQ(splitNonEmpty("abc", '.'), Pieces{"abc"});
  EXPECT_EQ(splitNonEmpty("..", '.'), Pieces{});
  EXPECT_EQ(splitNonEmpty("", '.'), Pieces{});
}

TEST(Text, ParsesACompleteTextAsADecimalInteger) {
  EXPECT_EQ(parseDecimal("09000"), 9000);
  EXPECT_EQ(parseDecimal("+9000"), 9000);
  EXPECT_EQ(parseDecimal("-5"), -5);
  EXPECT_EQ(parseDecimal("9223372036854775807"), LLONG_MAX);
  EXPECT_EQ(parseDecimal("-9223372036854775808"), LLONG_MIN);
  for (const auto* bad : {"", "+", "-", "+-5", "-+5", "++5", " 5", "5 ", "70000x", "0x10", "5.0",
                          "9223372036854775808", "-9223372036854775809"}) {
    EXPECT_EQ(parseDecimal(bad), std::nullopt) << bad;
  }
}

TEST(Text, AcceptsValidUTF8) {
  for (const auto& good : {""s, "plain"s, "\0\x01\x7F"s, "é"s, "€"s, "\xC2\x80"s, "\xED\x9F\xBF"s,
                           "\xEE\x80\x80"s, "\xF0\x90\x80\x80"s, "\xF4\x8F\xBF\xBF"s}) {
    EXPECT_TRUE(isValidUTF8(good)) << good;
  }
}

TEST(Text, RejectsInvalidUTF8) {
  const auto bad = {
      "\x80"s,          // a continuation alone
      "a\xC3"s,         // cut off
      "\xE2\x82"s,      // cut off
      "\xF0\x9F\x98"s,  // cut off
      "\xC3(ab"s,       // not followed by a continuation
      "\xE2\x82("s,
      "\xF0\x9F\x98("s,
      "\xC0\x80"s,  // overlong
      "\xC1\xBF"s,
      "\xE0\x9F\xBF"s,
      "\xF0\x8F\xBF\xBF"s,
      "\xED\xA0\x80"s,      // a surrogate
      "\xF4\x90\x80\x80"s,  // beyond U+10FFFF
      "\xF5\x80\x80\x80"s,
      "\xFF"s,
  };
  for (const auto& text : bad) EXPECT_FALSE(isValidUTF8(text)) << visible(text);
}

TEST(Text, ReadsCharactersOneByOne) {
  const auto first = [](std::string_view text) {
    const auto character = firstCharacter(text);
    return std::tuple(static_cast<std::uint32_t>(character.code), character.length,
                      character.isValid());
  };
  EXPECT_EQ(first("ab"), std::tuple(0x61, 1, true));
  EXPECT_EQ(first("é"), std::tuple(0xE9, 2, true));
  EXPECT_EQ(first("€ "), std::tuple(0x20AC, 3, true));
  EXPECT_EQ(first("😀"), std::tuple(0x1F600, 4, true));
  EXPECT_EQ(first("\uFFFD"), std::tuple(0xFFFD, 3, true));
  EXPECT_EQ(first("\xED\xA0\x80"), std::tuple(0xFFFD, 1, false));
}

TEST(Text, ShowsControlCharactersAsPictures) {
  EXPECT_EQ(visible("\0\t\n\x1B[31m\x1F\x7F"s), "␀␉␊␛[31m␟␡");
  EXPECT_EQ(visible("a\xC2\x80\xC2\x9Bz"), "a\\u0080\\u009bz");
  EXPECT_EQ(visible("\u00A0é€😀 ~"), "\u00A0é€😀 ~");
  EXPECT_EQ(visible(""), "");
}

TEST(Text, MakesCharactersThatHideOrReorderOthersVisible) {
  EXPECT_EQ(visible("photo\u202Egnp.exe"), "photo\\u202egnp.exe");
  EXPECT_EQ(visible("\u2066a\u2069\u200F\u061Cb"), "\\u2066a\\u2069\\u200f\\u061cb");
  EXPECT_EQ(visible("pass\u200Bwd\u00AD\uFEFF\u3164"), "pass\\u200bwd\\u00ad\\ufeff\\u3164");
  EXPECT_EQ(visible("a\u2028b\u2029c"), "a\\u2028b\\u2029c");
  EXPECT_EQ(visible("\U000E0041\U000E0FFF"), "\\U000e0041\\U000e0fff");
  EXPECT_EQ(visible("\uFDD0\uFFFC\uFFFE"), "\\ufdd0\\ufffc\\ufffe");
}

TEST(Text, KeepsNewlinesInATextOfSeveralLines) {
  EXPECT_EQ(visibleLines("a\tb\n\n\xFF\u202E\n"), "a␉b\n\n\uFFFD\\u202e\n");
  EXPECT_EQ(visibleLines("plain"), "plain");
  EXPECT_EQ(visibleLines(""), "");
}

TEST(Text, KeepsNeighborsOfHiddenCharacters) {
  const auto text =
      "\u00A0\u00AE\u2010\u2027\u202F\u2070\u3163\uFDCF\uFDF0\uFE0F\uFE10\uFFFD\U0001F600\U000E1000"s;
  EXPECT_EQ(visible(text), text);
}

TEST(Text, ShowsInvalidBytesAsReplacementCharacters) {
  EXPECT_EQ(visible("a\xE2\x82z\xFF"), "a\uFFFD\uFFFDz\uFFFD");
  EXPECT_EQ(visible("\x9B\xC3"), "\uFFFD\uFFFD");
}

TEST(Text, SpellsOutBlankCharactersOnRequest) {
  EXPECT_EQ(visibleWithBlanks("a\u00A0b\u1680c\u2000d\u200Ae"),
            "a\\u00a0b\\u1680c\\u2000d\\u200ae");
  EXPECT_EQ(visibleWithBlanks("a\u202Fb\u205Fc\u2800d\u3000e"),
            "a\\u202fb\\u205fc\\u2800d\\u3000e");
  EXPECT_EQ(visibleWithBlanks("\U0001D159\U00016FE4\U00013441"),
            "\\U0001d159\\U00016fe4\\U00013441");
  EXPECT_EQ(visibleWithBlanks("a\tb\x1B\u202E\xFF"), "a␉b␛\\u202e\uFFFD");
  EXPECT_EQ(visibleWithBlanks("é € 😀 \u2801"), "é € 😀 \u2801");
  EXPECT_EQ(visibleWithBlanks(""), "");
}

TEST(Text, CountsBlankCharactersInARow) {
  EXPECT_EQ(visibleWithBlanks("a   b"), "a   b");
  EXPECT_EQ(visibleWithBlanks("a    b"), "a␠×4b");
  EXPECT_EQ(visibleWithBlanks("ls" + std::string(5000, ' ') + "; rm"), "ls␠×5000; rm");
  EXPECT_EQ(visibleWithBlanks("    "), "␠×4");
  EXPECT_EQ(visibleWithBlanks("\u2800\u2800\u2800"), "\\u2800\\u2800\\u2800");
  EXPECT_EQ(visibleWithBlanks("\u2800\u2800\u2800\u2800 x"), "\\u2800×4 x");
  EXPECT_EQ(visibleWithBlanks("   \u00A0   "), "   \\u00a0   ");
}

TEST(Text, IsShortenedBetweenCharactersWithTheOmittedLength) {
  EXPECT_EQ(shortened("abc", 3), "abc");
  EXPECT_EQ(shortened("abcd", 3), "abc… [1 bytes left out]");
  EXPECT_EQ(shortened("aéz", 2), "a… [3 bytes left out]");
  EXPECT_EQ(shortened("a😀z", 4), "a… [5 bytes left out]");
  EXPECT_EQ(shortened("a😀z", 5), "a😀… [1 bytes left out]");
  EXPECT_EQ(shortened("abc", 0), "… [3 bytes left out]");
  EXPECT_TRUE(isValidUTF8(shortened("\x80\x80\x80\x80\x80\x80é", 5).substr(5)));
}

TEST(Text, LosesControlCharacters) {
  EXPECT_EQ(withoutControlCharacters("\x1B[1mé\r\n\0\x7F\xC2\x85z"s), "[1méz");
}

TEST(Text, LosesNoOtherCharacters) {
  EXPECT_EQ(withoutControlCharacters("a\u200Db\u202E"), "a\u200Db\u202E");
}

TEST(Text, CreatesNoControlCharacterByRemovingOne) {
  const std::string rest = withoutControlCharacters("\xC2\x01\x85");
  EXPECT_EQ(rest, "");
  EXPECT_EQ(withoutControlCharacters("a\xFFz"), "az");
}

TEST(Text, QuotesForAShell) {
  EXPECT_EQ(shellQuoted("a b$c"), "'a b$c'");
  EXPECT_EQ(shellQuoted("it's"), "'it'\\''s'");
  EXPECT_EQ(shellQuoted(""), "''");
}

}  // namespace
}  // namespace zephyl
