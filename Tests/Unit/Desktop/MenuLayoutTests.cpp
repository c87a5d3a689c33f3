#include "Desktop/Freedesktop/Menu/MenuLayout.hpp"

#include <algorithm>
#include <chrono>
#include <string>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

MenuEntry row(std::string key, std::string title, std::vector<MenuEntry> submenu = {}) {
  return {.key = std::move(key),
          .title = std::move(title),
          .action = MenuAction(std::string("act")),
          .submenu = std::move(submenu)};
}

using Menus = std::vector<std::int32_t>;

class MenuLayoutTest : public ::testing::Test {
 protected:
  MenuLayout::Difference set(Menu menu) {
    return layout_.update(std::make_shared<const Menu>(std::move(menu)));
  }
  std::vector<std::int32_t> topIds() const {
    std::vector<std::int32_t> ids;
    for (const auto& each : layout_.root().children) ids.push_back(each.id);
    return ids;
  }

  MenuLayout layout_;
};

TEST_F(MenuLayoutTest, AnEmptyMenuGetsADisabledRow) {
  ASSERT_EQ(layout_.root().children.size(), 1U);
  EXPECT_FALSE(layout_.root().children.front().entry->enabled);
  set({row("a", "A")});
  set({});
  ASSERT_EQ(layout_.root().children.size(), 1U);
  EXPECT_EQ(layout_.root().children.front().entry->title, "Zephyl");
}

TEST_F(MenuLayoutTest, AnEqualMenuIsNoDifference) {
  const Menu menu{row("a", "A", {row("b", "B")}), row("c", "C")};
  EXPECT_EQ(set(menu).menus, Menus{MenuLayout::rootId});
  const auto difference = set(menu);
  EXPECT_EQ(difference.menus, Menus{});
  EXPECT_TRUE(difference.changes.empty());
}

TEST_F(MenuLayoutTest, ARowWithANewTextKeepsItsIdAndIsAChange) {
  set({row("a", "A"), row("b", "B")});
  const auto before = topIds();
  const auto difference = set({row("a", "A"), row("b", "other")});
  EXPECT_EQ(topIds(), before);
  EXPECT_EQ(difference.menus, Menus{});
  ASSERT_EQ(difference.changes.size(), 1U);
  EXPECT_EQ(difference.changes.front().row->id, before[1]);
  EXPECT_EQ(difference.changes.front().before->title, "B");
  EXPECT_EQ(difference.changes.front().row->entry->title, "other");
}

TEST_F(MenuLayoutTest, AnInsertedRowKeepsTheOthersIds) {
  set({row("a", "A"), row("b", "B")});
  const auto before = topIds();
  EXPECT_EQ(set({row("a", "A"), row("new", "N"), row("b", "B")}).menus, Menus{MenuLayout::rootId});
  const auto after = topIds();
  EXPECT_EQ(after[0], before[0]);
  EXPECT_EQ(after[2], before[1]);
  EXPECT_GT(after[1], before[1]);
}

TEST_F(MenuLayoutTest, RowsThatSwapPlacesKeepTheirIdsAndChangeTheStructure) {
  set({row("a", "A"), row("b", "B"), row("c", "C")});
  const auto before = topIds();
  EXPECT_EQ(set({row("a", "A"), row("c", "C"), row("b", "B")}).menus, Menus{MenuLayout::rootId});
  EXPECT_EQ(topIds(), (std::vector{before[0], before[2], before[1]}));
}

TEST_F(MenuLayoutTest, AMenuIsNamedOnlyIfItsOwnRowsChange) {
  const auto menu = [](Menu inner, const char* title = "A") {
    return Menu{row("a", title, {row("b", "B", std::move(inner)), row("c", "C")})};
  };
  set(menu({row("x", "X"), row("y", "Y")}));
  const auto outer = topIds()[0];
  const auto inner = layout_.find(outer)->children[0].id;
  EXPECT_EQ(set(menu({row("x", "X")})).menus, Menus{inner}) << "a row was removed";
  EXPECT_EQ(set(menu({row("x", "X"), row("y", "Y")})).menus, Menus{inner}) << "a row was added";
  EXPECT_EQ(set(menu({row("y", "Y"), row("x", "X")})).menus, Menus{inner}) << "rows moved";
  EXPECT_EQ(set(menu({row("y", "other"), row("x", "X")}, "other")).menus, Menus{});
  EXPECT_EQ(set(menu({})).menus, Menus{outer}) << "a row without its submenu is another row";
  EXPECT_EQ(set(menu({row("x", "X")})).menus, Menus{outer}) << "a new submenu is not named";
}

TEST_F(MenuLayoutTest, ARowThatWasRemovedAndAddedHasANewId) {
  set({row("a", "A"), row("b", "B")});
  const auto before = topIds();
  set({row("a", "A")});
  EXPECT_EQ(layout_.find(before[1]), nullptr);
  set({row("a", "A"), row("b", "B")});
  EXPECT_EQ(topIds()[0], before[0]);
  EXPECT_GT(topIds()[1], before[1]);
}

TEST_F(MenuLayoutTest, ARowWithAnotherKindOrActionIsAnotherRow) {
  const auto plain = row("a", "A");
  auto separator = plain;
  separator.kind = MenuEntry::Kind::separator;
  auto dotted = plain;
  dotted.dot = DotColor::red;
  auto acting = plain;
  acting.action = MenuAction(std::string("act on something else"));
  auto withKey = plain;
  withKey.shortcut = "o";
  for (const auto& other : {separator, dotted, acting, withKey, row("a", "A", {row("x", "X")})}) {
    set({plain});
    const auto before = topIds();
    EXPECT_EQ(set({other}).menus, Menus{MenuLayout::rootId});
    EXPECT_NE(topIds(), before);
  }
}

TEST_F(MenuLayoutTest, RowsUnderAnotherParentAreOtherRows) {
  set({row("a", "A", {row("x", "X")})});
  const auto child = layout_.root().children.front().children.front().id;
  set({row("b", "B", {row("x", "X")})});
  EXPECT_EQ(layout_.find(child), nullptr);
}

TEST_F(MenuLayoutTest, TwoRowsWithOneKeyAreTwoRows) {
  set({row("a", "A"), row("a", "B")});
  set({row("a", "A"), row("a", "B"), row("a", "C")});
  const auto ids = topIds();
  EXPECT_NE(ids[0], ids[1]);
  EXPECT_NE(ids[1], ids[2]);
  EXPECT_NE(ids[0], ids[2]);
}

/// An algorithm that compares each pair of rows would take minutes.
TEST_F(MenuLayoutTest, FindsManyRowsAgainInAnyOrder) {
  Menu menu;
  for (int i = 0; i < 20'000; ++i) {
    menu.push_back(row("a key that all rows begin with/" + std::to_string(i), "R"));
  }
  set(menu);
  auto before = topIds();
  std::ranges::reverse(menu);
  std::ranges::reverse(before);
  const auto start = std::chrono::steady_clock::now();
  set(menu);
  EXPECT_EQ(topIds(), before);
  for (auto& entry : menu) entry.key += "/new";
  set(menu);
  EXPECT_GT(topIds().front(), *std::ranges::max_element(before));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST_F(MenuLayoutTest, ListsAllIdsTheRootFirst) {
  set({row("a", "A", {row("b", "B")})});
  const auto ids = layout_.ids();
  EXPECT_EQ(ids.size(), 3U);
  EXPECT_EQ(ids.front(), MenuLayout::rootId);
}

}  // namespace
}  // namespace zephyl
