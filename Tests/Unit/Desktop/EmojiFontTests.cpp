#include "Desktop/Freedesktop/Menu/EmojiFont.hpp"

#include <gtest/gtest.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

class EmojiFontTest : public ::testing::Test {
 protected:
  test::TemporaryDirectory directory_;
  test::ScopedVariable own_{"XDG_DATA_HOME", directory_ / "own"};
  test::ScopedVariable shared_{"XDG_DATA_DIRS", directory_ / "first" + ":" + directory_ / "second"};
};

TEST_F(EmojiFontTest, IsFoundByItsNameInAnyFolderOfFonts) {
  EXPECT_FALSE(hasEmojiFont()) << "there are no folders";
  directory_.write("own/fonts/Text.ttf", "");
  directory_.write("second/fonts/truetype/Text.ttf", "");
  EXPECT_FALSE(hasEmojiFont());
  directory_.write("second/fonts/truetype/noto/NotoColorEmoji.ttf", "");
  EXPECT_TRUE(hasEmojiFont());
}

TEST_F(EmojiFontTest, IsFoundInTheFolderOfTheUser) {
  directory_.write("own/fonts/emoji/Color.ttf", "");
  EXPECT_TRUE(hasEmojiFont());
}

TEST_F(EmojiFontTest, IsNotSearchedBesideTheFonts) {
  directory_.write("first/icons/emoji.svg", "");
  EXPECT_FALSE(hasEmojiFont());
}

}  // namespace
}  // namespace zephyl
