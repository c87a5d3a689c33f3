#include <string>

#include <gtest/gtest.h>

#include "Desktop/Menu.hpp"

namespace zephyl {
namespace {

TEST(MenuAction, ReturnsItsValueAsItsType) {
  const MenuAction action(std::string("connect"));
  ASSERT_NE(action.as<std::string>(), nullptr);
  EXPECT_EQ(*action.as<std::string>(), "connect");
  EXPECT_EQ(action.as<int>(), nullptr);
}

TEST(MenuAction, EqualsOneWithTheSameTypeAndValue) {
  const MenuAction action(1);
  EXPECT_EQ(action, MenuAction(1));
  EXPECT_NE(action, MenuAction(2));
  EXPECT_NE(action, MenuAction(1L));
}

}  // namespace
}  // namespace zephyl
