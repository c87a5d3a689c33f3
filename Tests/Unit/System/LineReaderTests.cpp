#include "System/Data/LineReader.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Lines = std::vector<std::string>;
using namespace std::string_literals;

constexpr std::size_t limit = LineReader::maxLineBytes;

Lines readAll(std::initializer_list<std::string_view> pieces) {
  LineReader reader;
  Lines lines;
  for (const std::string_view piece : pieces) {
    for (auto& line : reader.append(piece)) lines.push_back(std::move(line));
  }
  for (auto& line : reader.finish()) lines.push_back(std::move(line));
  return lines;
}

/// Returns the lines of `text` if it arrives byte by byte.
Lines readSingly(std::string_view text) {
  LineReader reader;
  Lines lines;
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (auto& line : reader.append(text.substr(i, 1))) lines.push_back(std::move(line));
  }
  for (auto& line : reader.finish()) lines.push_back(std::move(line));
  return lines;
}

TEST(LineReader, SplitsAtEachLineFeed) {
  EXPECT_EQ(readAll({"one\ntwo\nthree\n"}), (Lines{"one", "two", "three"}));
}

TEST(LineReader, JoinsALineThatArrivesInPieces) {
  LineReader reader;
  EXPECT_EQ(reader.append("data tun"), Lines{});
  EXPECT_EQ(reader.append("nel on "), Lines{});
  EXPECT_EQ(reader.append("http\nnext"), Lines{"data tunnel on http"});
  EXPECT_EQ(reader.append("\n"), Lines{"next"});
}

TEST(LineReader, DropsEmptyLines) {
  EXPECT_EQ(readAll({"a\n\nb\n", "\n", "\r\n"}), (Lines{"a", "b"}));
}

TEST(LineReader, FlushesTheUnterminatedLineOnce) {
  LineReader reader;
  EXPECT_EQ(reader.append("a\ntail"), Lines{"a"});
  EXPECT_EQ(reader.finish(), Lines{"tail"});
  EXPECT_EQ(reader.finish(), Lines{});
}

TEST(LineReader, TreatsACarriageReturnBeforeTheLineFeedAsPartOfTheEnd) {
  EXPECT_EQ(readAll({"a\r\nb\r", "\nc\rd\n", "e\r\r\n"}), (Lines{"a", "b", "c\rd", "e\r"}));
}

TEST(LineReader, JoinsACharacterThatArrivesInPieces) {
  EXPECT_EQ(readAll({"gr\xC3", "\xBC\xC3\x9F", "e \xF0\x9F", "\x98\x80\n"}),
            Lines{"gr\xC3\xBC\xC3\x9F"
                  "e \xF0\x9F\x98\x80"});
}

TEST(LineReader, DropsOnlyALineThatIsNotValidUTF8) {
  EXPECT_EQ(readAll({"before\nbroken \xFF line\nafter\n"}), (Lines{"before", "after"}));
  EXPECT_EQ(readAll({"split \xC3\n\xBC\nend \xE2\x82"}), Lines{});
}

TEST(LineReader, KeepsControlCharactersAndNUL) {
  EXPECT_EQ(readAll({"\x1B[31mred\x1B[0m\ta\0b\n"s}), Lines{"\x1B[31mred\x1B[0m\ta\0b"s});
}

TEST(LineReader, CutsALongLineAndDropsItsRest) {
  const std::string line(limit, 'a');
  EXPECT_EQ(readAll({line + "\n"}), Lines{line});
  EXPECT_EQ(readAll({line + "b\nnext\n"}), (Lines{line, "next"}));
  EXPECT_EQ(readAll({line, "b", "c", std::string(3 * limit, 'd'), "\nnext\n"}),
            (Lines{line, "next"}));
  EXPECT_EQ(readAll({line + "bcd"}), Lines{line});
}

TEST(LineReader, DistinguishesTheEndOfACutLineFromItsRest) {
  const std::string line(limit, 'a');
  EXPECT_EQ(readAll({line + "\r\n"}), Lines{line});
  EXPECT_EQ(readAll({line, "\r", "\n"}), Lines{line});
  const std::string inner = std::string(limit - 1, 'a') + "\r";
  EXPECT_EQ(readAll({inner, "\r\n"}), Lines{inner});
  EXPECT_EQ(readAll({inner, "b\r\n"}), Lines{inner});
}

TEST(LineReader, CutsALongLineBeforeTheCharacterThatStraddlesTheLimit) {
  for (const std::string character : {"\xC3\xBC", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    for (std::size_t inside = 0; inside <= character.size(); ++inside) {
      const std::string start(limit - inside, 'a');
      const std::string kept = inside == character.size() ? start + character : start;
      EXPECT_EQ(readAll({start + character + "rest\n"}), Lines{kept});
      EXPECT_EQ(readAll({start, character, "rest", "\n"}), Lines{kept});
    }
  }
}

TEST(LineReader, ValidatesOnlyTheKeptPartOfACutLine) {
  const std::string line(limit, 'a');
  EXPECT_EQ(readAll({line + "\xFF\xFE\n"}), Lines{line});
  EXPECT_EQ(readAll({"\xFF" + line + "\nnext\n"}), Lines{"next"});
  EXPECT_EQ(readAll({std::string(2 * limit, '\x80') + "\nnext\n"}), Lines{"next"});
}

TEST(LineReader, GivesTheSameLinesHoweverTheBytesArrive) {
  const std::string text = "one\r\n\n\xE2\x82\xAC" + std::string(limit - 3, 'x') + "\r\n" +
                           std::string(limit - 1, 'y') + "\xC3\xBC tail\nbad \xC3\nlast\r";
  const Lines whole = readAll({text});
  EXPECT_EQ(whole.size(), 4U);
  EXPECT_EQ(readSingly(text), whole);
}

}  // namespace
}  // namespace zephyl
