#include "Desktop/Freedesktop/Menu/LevelReaders.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Ids = std::vector<std::int32_t>;

class LevelReadersTest : public ::testing::Test {
 protected:
  static MenuEntry entry(std::string key, std::vector<MenuEntry> submenu = {}) {
    return {.key = std::move(key), .submenu = std::move(submenu)};
  }
  void set(Menu menu) { layout_.update(std::make_shared<const Menu>(std::move(menu))); }
  const MenuRow& root() const { return layout_.root(); }
  std::int32_t id(std::size_t row) const { return root().children.at(row).id; }

  MenuLayout layout_;
  LevelReaders readers_;
};

TEST_F(LevelReadersTest, EachSubmenuIsReturnedOnceForAHost) {
  set({entry("a"), entry("b", {entry("x")}), entry("c", {entry("y")})});
  EXPECT_EQ(readers_.unread(":1.1", root(), 1), (Ids{id(1), id(2)}));
  EXPECT_EQ(readers_.unread(":1.1", root(), 1), Ids{});
  EXPECT_EQ(readers_.unread(":1.2", root(), 1), (Ids{id(1), id(2)}));
}

TEST_F(LevelReadersTest, ANewSubmenuIsReturnedToAHostThatKnowsTheOthers) {
  set({entry("b", {entry("x")})});
  (void)readers_.unread(":1.1", root(), 1);
  set({entry("b", {entry("x")}), entry("c", {entry("y")})});
  EXPECT_EQ(readers_.unread(":1.1", root(), 1), Ids{id(1)});
}

TEST_F(LevelReadersTest, AHostThatReadsAllLevelsIsNoLevelReader) {
  set({entry("b", {entry("x", {entry("z")})})});
  EXPECT_EQ(readers_.unread(":1.1", root(), -1), Ids{});
  EXPECT_EQ(readers_.unread(":1.1", root(), 3), Ids{});
  EXPECT_EQ(readers_.unread(":1.1", root(), 0), Ids{}) << "the host asked for no rows";
  EXPECT_FALSE(readers_.contains(":1.1"));
  EXPECT_EQ(readers_.unread(":1.1", root(), 2), Ids{root().children[0].children[0].id});
  EXPECT_TRUE(readers_.contains(":1.1"));
}

TEST_F(LevelReadersTest, TooManyHostsAreForgottenTogether) {
  set({entry("b", {entry("x")})});
  for (std::size_t host = 0; host <= LevelReaders::maximum; ++host) {
    EXPECT_EQ(readers_.unread(":1." + std::to_string(host), root(), 1), Ids{id(0)});
  }
  EXPECT_FALSE(readers_.contains(":1.0"));
  EXPECT_TRUE(readers_.contains(":1." + std::to_string(LevelReaders::maximum)));
}

}  // namespace
}  // namespace zephyl
