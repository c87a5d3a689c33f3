#include "Desktop/Terminal/Drawing/KeyDecoder.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Kind = Key::Kind;
using Keys = std::vector<Key>;

Key character(const char* text) {
  return {.kind = Kind::character, .text = text};
}

Key just(Kind kind) {
  return {.kind = kind};
}

Keys decoded(std::string_view bytes, bool unicode = true) {
  return KeyDecoder({}, unicode).decode(bytes);
}

TEST(KeyDecoder, DecodesCharactersAndControlKeys) {
  EXPECT_EQ(decoded("aé日"), (Keys{character("a"), character("é"), character("日")}));
  EXPECT_EQ(decoded("\r\t\x7f"), (Keys{just(Kind::enter), just(Kind::tab), just(Kind::backspace)}));
  EXPECT_EQ(decoded("\x0f"), (Keys{{.kind = Kind::control, .text = "o"}}));
}

TEST(KeyDecoder, DecodesTheUsualFormsOfCursorKeys) {
  EXPECT_EQ(decoded("\x1b[A\x1bOB\x1b[1;5C\x1b[D"),
            (Keys{just(Kind::up), just(Kind::down), just(Kind::right), just(Kind::left)}));
  EXPECT_EQ(decoded("\x1b[5~\x1b[6~\x1b[H\x1b[4~\x1b[3~\x1b[Z"),
            (Keys{just(Kind::pageUp), just(Kind::pageDown), just(Kind::home), just(Kind::end),
                  just(Kind::remove), just(Kind::backTab)}));
}

TEST(KeyDecoder, DecodesTheKeysOfTerminfo) {
  KeyDecoder decoder({{"\x1b[[X", Kind::up}}, true);
  EXPECT_EQ(decoder.decode("\x1b[[Xa"), (Keys{just(Kind::up), character("a")}));
}

TEST(KeyDecoder, JoinsAKeyThatArrivesInPieces) {
  KeyDecoder decoder({}, true);
  EXPECT_EQ(decoder.decode("\x1b"), Keys{});
  EXPECT_TRUE(decoder.isWaiting());
  EXPECT_EQ(decoder.decode("["), Keys{});
  EXPECT_EQ(decoder.decode("A\xc3"), Keys{just(Kind::up)});
  EXPECT_EQ(decoder.decode("\xa9"), Keys{character("é")});
  EXPECT_FALSE(decoder.isWaiting());
}

TEST(KeyDecoder, RecognizesTheEscapeKeyAfterAPause) {
  KeyDecoder decoder({}, true);
  EXPECT_EQ(decoder.decode("\x1b"), Keys{});
  EXPECT_EQ(decoder.flush(), Keys{just(Kind::escape)});
  EXPECT_FALSE(decoder.isWaiting());
  EXPECT_EQ(decoder.decode("\x1b\x1b[A"), (Keys{just(Kind::escape), just(Kind::up)}));
}

TEST(KeyDecoder, DecodesMouseEvents) {
  EXPECT_EQ(decoded("\x1b[<0;12;5M\x1b[<0;12;5m\x1b[<64;1;1M"),
            (Keys{{.kind = Kind::press, .row = 4, .column = 11}, just(Kind::wheelUp)}));
}

TEST(KeyDecoder, DecodesFocusEvents) {
  EXPECT_EQ(decoded("\x1b[I\x1b[O\x1bOI\x1b[5I"), Keys{just(Kind::focusIn)});
}

TEST(KeyDecoder, ReturnsPastedTextAsOneKey) {
  KeyDecoder decoder({}, true);
  EXPECT_EQ(decoder.decode("\x1b[200~inv_v2_\r"), Keys{});
  EXPECT_FALSE(decoder.isWaiting());
  EXPECT_EQ(decoder.decode("rest\x1b[20"), Keys{});
  EXPECT_EQ(decoder.decode("1~x"),
            (Keys{{.kind = Kind::paste, .text = "inv_v2_\rrest"}, character("x")}));
}

TEST(KeyDecoder, BoundsPastedText) {
  KeyDecoder decoder({}, true);
  decoder.decode("\x1b[200~");
  for (int i = 0; i < 100; ++i) EXPECT_EQ(decoder.decode(std::string(10'000, 'x')), Keys{});
  decoder.decode("\x1b[2");
  const auto keys = decoder.decode("01~");
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_LE(keys.front().text.size(), 64U * 1024);
}

TEST(KeyDecoder, DropsUnknownSequences) {
  EXPECT_EQ(decoded("\x1bx\x1b[99~\x1b[?1;2c"
                    "a"),
            Keys{character("a")});
  EXPECT_EQ(decoded("\xff\xc0"
                    "a"),
            Keys{character("a")});
  EXPECT_EQ(decoded("\xc3\xa9"
                    "a",
                    false),
            Keys{character("a")});
  EXPECT_EQ(decoded("\x1b[" + std::string(100, '1') + "ab").back(), character("b"));
}

}  // namespace
}  // namespace zephyl
