#include "Desktop/Freedesktop/Menu/MenuChanges.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

class MenuChangesTest : public ::testing::Test {
 protected:
  MenuChangesTest() {
    set({entry("a", "first"), entry("b", "B")});
    changes_.clear();
  }
  static MenuEntry entry(std::string key, std::string title, std::vector<MenuEntry> submenu = {}) {
    return {.key = std::move(key), .title = std::move(title), .submenu = std::move(submenu)};
  }
  void set(Menu menu) {
    changes_.add(layout_.update(std::make_shared<const Menu>(std::move(menu))));
  }
  std::int32_t firstId() const { return layout_.root().children.front().id; }

  MenuLayout layout_;
  MenuChanges changes_;
};

TEST_F(MenuChangesTest, SeveralChangesOfARowAreComparedWithItsFirstState) {
  set({entry("a", "second"), entry("b", "B")});
  set({entry("a", "third"), entry("b", "B")});
  ASSERT_EQ(changes_.before().size(), 1U);
  EXPECT_EQ(changes_.before().begin()->first, firstId());
  EXPECT_EQ(changes_.before().begin()->second->title, "first");
  EXPECT_TRUE(changes_.menus().empty());
}

TEST_F(MenuChangesTest, MenusAreNamedOnceTheOuterBeforeTheInner) {
  const auto menu = [](Menu inner) { return Menu{entry("m", "M", std::move(inner))}; };
  set(menu({entry("x", "X")}));
  const auto inner = firstId();
  set(menu({entry("y", "Y")}));
  set(menu({entry("z", "Z")}));
  EXPECT_EQ(changes_.menus(), (std::set<std::int32_t>{MenuLayout::rootId, inner}));
  EXPECT_EQ(*changes_.menus().begin(), MenuLayout::rootId);
}

TEST_F(MenuChangesTest, IsEmptyAgainOnceTheHostsWereNotified) {
  EXPECT_TRUE(changes_.empty());
  set({entry("a", "second")});
  EXPECT_FALSE(changes_.empty());
  changes_.clear();
  EXPECT_TRUE(changes_.empty());
}

}  // namespace
}  // namespace zephyl
