#include "Desktop/Freedesktop/StatusIcons.hpp"

#include <algorithm>

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

TEST_F(StatusIconsTest, HaveNoNameIfTheyAreNotInstalled) {
  EXPECT_EQ(locateIcons(executable_), std::nullopt);
  EXPECT_EQ(locateIcons(std::nullopt), std::nullopt);
}

TEST_F(StatusIconsTest, AreFoundInTheDesktopsDirectories) {
  directory_.write(std::string("b/icons/") + image, "");
  EXPECT_EQ(locateIcons(executable_), IconLocation{});
}

TEST_F(StatusIconsTest, AreFoundUnderThePrefixOrBesideTheExecutable) {
  directory_.write(std::string("prefix/bin/icons/") + image, "");
  EXPECT_EQ(locateIcons(executable_), (IconLocation{directory_ / "prefix/bin/icons"}));
  directory_.write(std::string("prefix/share/icons/") + image, "");
  EXPECT_EQ(locateIcons(executable_), (IconLocation{directory_ / "prefix/share/icons"}));
}

/// Returns alpha, red, green and blue of the pixel at a position on a grid of 16 by 16 units.
std::array<int, 4> pixel(const IconPixmap& icon, double x, double y) {
  const auto place = [&](double units) { return static_cast<std::size_t>(units * icon.side / 16); };
  const auto at = (place(y) * static_cast<std::size_t>(icon.side) + place(x)) * 4;
  std::array<int, 4> values{};
  std::copy_n(icon.pixels.begin() + static_cast<std::ptrdiff_t>(at), values.size(), values.begin());
  return values;
}

TEST_F(StatusIconsTest, AreDrawnAsAFolderWithABadgeInEverySize) {
  const std::array white{255, 0xff, 0xff, 0xff};
  const std::array orange{255, 0xf5, 0xa6, 0x23};
  const auto idle = pixmapsOf(StatusIcon::idle);
  const auto busy = pixmapsOf(StatusIcon::busy);
  for (std::size_t size = 0; size < idle.size(); ++size) {
    const auto side = static_cast<std::size_t>(idle.at(size).side);
    SCOPED_TRACE(side);
    EXPECT_EQ(idle.at(size).pixels.size(), side * side * 4);
    EXPECT_EQ(busy.at(size).pixels.size(), side * side * 4);
    EXPECT_EQ(pixel(idle.at(size), 4, 8), white) << "the folder";
    EXPECT_EQ(pixel(idle.at(size), 15.5, 0.5)[0], 0) << "beside the folder";
    EXPECT_EQ(pixel(idle.at(size), 11.5, 9.7), white) << "the head";
    EXPECT_EQ(pixel(busy.at(size), 4, 8), white) << "the folder";
    EXPECT_EQ(pixel(busy.at(size), 11.5, 9.4), orange) << "the gear";
    EXPECT_EQ(pixel(busy.at(size), 11.5, 11.5)[0], 0) << "the hole of the badge";
  }
}

}  // namespace
}  // namespace zephyl
