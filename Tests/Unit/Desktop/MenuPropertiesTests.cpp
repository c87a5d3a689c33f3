#include "Desktop/Freedesktop/Menu/MenuProperties.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Properties = std::vector<MenuProperty>;

const MenuEntry folderRow{.key = "a", .title = "1 folder shared", .enabled = false};
const MenuEntry server{.key = "s", .title = "Lab", .dot = DotColor::green, .submenu = {folderRow}};

TEST(MenuProperties, AnItemHasALabelAndAnEnabledFlag) {
  EXPECT_EQ(propertiesOf(&folderRow, DotStyle::icon),
            (Properties{{"label", "1 folder shared"}, {"enabled", false}}));
}

TEST(MenuProperties, ASeparatorHasNoOtherProperties) {
  const MenuEntry separator{.key = "-", .kind = MenuEntry::Kind::separator};
  EXPECT_EQ(propertiesOf(&separator, DotStyle::icon), (Properties{{"type", "separator"}}));
}

TEST(MenuProperties, TheRootShowsAMenu) {
  EXPECT_EQ(propertiesOf(nullptr, DotStyle::icon), (Properties{{"children-display", "submenu"}}));
}

TEST(MenuProperties, AnUnderscoreIsDoubledAndAControlCharacterMadeVisible) {
  const MenuEntry entry{.key = "a", .title = "my_file\n__"};
  EXPECT_EQ(propertiesOf(&entry, DotStyle::icon).front(), (MenuProperty{"label", "my__file␊____"}));
}

TEST(MenuProperties, ADotIsAnImageWithAnAccessibleDescription) {
  EXPECT_EQ(propertiesOf(&server, DotStyle::icon),
            (Properties{{"label", "Lab"},
                        {"enabled", true},
                        {"children-display", "submenu"},
                        {"icon-data", ImageBytes{dotImage(DotColor::green)}},
                        {"accessible-desc", "Lab, connected"}}));
}

TEST(MenuProperties, ADotIsACharacterIfTheHostShowsNoImagesBesideLabels) {
  EXPECT_EQ(propertiesOf(&server, DotStyle::character),
            (Properties{{"label", "🟢 Lab"},
                        {"enabled", true},
                        {"children-display", "submenu"},
                        {"accessible-desc", "Lab, connected"}}));
  auto line = server;
  line.submenu.clear();
  EXPECT_EQ(
      propertiesOf(&line, DotStyle::character),
      (Properties{{"label", "🟢 Lab"}, {"enabled", true}, {"accessible-desc", "Lab, connected"}}));
}

TEST(MenuProperties, TheStateOfAServerIsInWordsIfCirclesHaveNoColor) {
  EXPECT_EQ(propertiesOf(&server, DotStyle::words),
            (Properties{{"label", "Lab — connected"},
                        {"enabled", true},
                        {"children-display", "submenu"},
                        {"accessible-desc", "Lab, connected"}}));
  auto line = server;
  line.submenu.clear();
  EXPECT_EQ(propertiesOf(&line, DotStyle::words).front(), (MenuProperty{"label", "Lab"}))
      << "its text is the state";
}

TEST(MenuProperties, ADotIsACharacterOnADisabledRowIfTheHostGreysImages) {
  auto line = server;
  EXPECT_EQ(propertiesOf(&line, DotStyle::characterWhenDisabled),
            propertiesOf(&line, DotStyle::icon));
  line.enabled = false;
  EXPECT_EQ(propertiesOf(&line, DotStyle::characterWhenDisabled),
            propertiesOf(&line, DotStyle::character));
  EXPECT_EQ(removedProperties(server, line, DotStyle::characterWhenDisabled),
            std::vector<std::string_view>{"icon-data"});
  EXPECT_TRUE(removedProperties(line, server, DotStyle::characterWhenDisabled).empty());
}

TEST(MenuProperties, AKeyEquivalentIsAShortcut) {
  const MenuEntry entry{.key = "q", .title = "Quit Zephyl", .shortcut = "q"};
  EXPECT_EQ(propertiesOf(&entry, DotStyle::icon).back(), (MenuProperty{"shortcut", Shortcut{"q"}}));
}

TEST(MenuProperties, AChangeContainsOnlyTheNewValues) {
  auto red = server;
  red.dot = DotColor::red;
  EXPECT_EQ(changedProperties(server, red, DotStyle::icon),
            (Properties{{"icon-data", ImageBytes{dotImage(DotColor::red)}},
                        {"accessible-desc", "Lab, not working"}}));
  auto disabled = folderRow;
  disabled.enabled = true;
  EXPECT_EQ(changedProperties(folderRow, disabled, DotStyle::icon),
            (Properties{{"enabled", true}}));
  EXPECT_TRUE(changedProperties(server, server, DotStyle::icon).empty());
}

TEST(MenuProperties, EachDotHasItsOwnImage) {
  for (const auto color : {DotColor::grey, DotColor::green, DotColor::orange, DotColor::red}) {
    EXPECT_TRUE(dotImage(color).starts_with("\x89PNG\r\n\x1a\n"));
    EXPECT_LT(dotImage(color).size(), 400U);
  }
  EXPECT_NE(dotImage(DotColor::green), dotImage(DotColor::red));
}

}  // namespace
}  // namespace zephyl
