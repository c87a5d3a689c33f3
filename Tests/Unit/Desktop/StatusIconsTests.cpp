#include "Desktop/Freedesktop/StatusIcons.hpp"

#include <gtest/gtest.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

constexpr const char* image = "hicolor/symbolic/apps/com.zephyl.tray-idle-symbolic.svg";

class StatusIconsTest : public ::testing::Test {
 protected:
  test::TemporaryDirectory directory_;
  test::ScopedVariable data_{"XDG_DATA_HOME", directory_ / "data"};
  test::ScopedVariable shared_{"XDG_DATA_DIRS", directory_ / "a" + ":" + (directory_ / "b")};
  std::string executable_ = directory_ / "prefix/bin/zephyl-tray";
};

TEST_F(StatusIconsTest, AreNotNamedWhenTheyAreNowhere) {
  EXPECT_EQ(locateIcons(executable_), std::nullopt);
  EXPECT_EQ(locateIcons(std::nullopt), std::nullopt);
}

TEST_F(StatusIconsTest, AreFoundWhereTheDesktopLooks) {
  directory_.write(std::string("b/icons/") + image, "");
  EXPECT_EQ(locateIcons(executable_), IconLocation{});
}

TEST_F(StatusIconsTest, AreFoundUnderThePrefixOrBesideTheExecutable) {
  directory_.write(std::string("prefix/bin/icons/") + image, "");
  EXPECT_EQ(locateIcons(executable_), (IconLocation{directory_ / "prefix/bin/icons"}));
  directory_.write(std::string("prefix/share/icons/") + image, "");
  EXPECT_EQ(locateIcons(executable_), (IconLocation{directory_ / "prefix/share/icons"}));
}

/// Alpha, red, green, blue of a pixel of a 16 pixels wide drawing.
std::array<int, 4> pixel(const std::string& drawing, std::size_t x, std::size_t y) {
  std::array<int, 4> values{};
  for (std::size_t i = 0; i < values.size(); ++i) {
    values.at(i) = static_cast<unsigned char>(drawing.at((y * 16 + x) * 4 + i));
  }
  return values;
}

TEST_F(StatusIconsTest, AreDrawnAsAFolderWithABadge) {
  const auto idle = drawIcon(StatusIcon::idle, 16);
  const auto busy = drawIcon(StatusIcon::busy, 16);
  ASSERT_EQ(idle.size(), 16U * 16 * 4);
  EXPECT_EQ(pixel(idle, 4, 8), (std::array{255, 0x4a, 0x90, 0xe2}));   // folder
  EXPECT_EQ(pixel(idle, 15, 0)[0], 0);                                 // nothing
  EXPECT_EQ(pixel(idle, 11, 9), (std::array{255, 0x4a, 0x90, 0xe2}));  // head
  EXPECT_EQ(pixel(busy, 11, 9), (std::array{255, 0xe8, 0x89, 0x0c}));  // gear
  EXPECT_EQ(pixel(busy, 11, 11)[0], 0);                                // its hole
}

TEST_F(StatusIconsTest, AreDrawnInEverySize) {
  EXPECT_EQ(drawIcon(StatusIcon::busy, 48).size(), 48U * 48 * 4);
  EXPECT_EQ(drawIcon(StatusIcon::idle, 22).size(), 22U * 22 * 4);
}

}  // namespace
}  // namespace zephyl
