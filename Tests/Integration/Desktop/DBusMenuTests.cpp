#include "Desktop/Freedesktop/Menu/DBusMenu.hpp"

#include "FreedesktopDesktopTest.hpp"

namespace zephyl {
namespace {

using Properties = std::map<std::string, std::string>;
using Strings = std::vector<std::string>;

class DBusMenuTest : public test::FreedesktopDesktopTest {
 protected:
  static constexpr std::int32_t unknown = 9999;

  /// Returns the ids in the reply's next array.
  static std::vector<std::int32_t> ids(sd_bus_message* reply) {
    std::vector<std::int32_t> ids;
    std::int32_t id = 0;
    sd_bus_message_enter_container(reply, 'a', "i");
    while (sd_bus_message_read(reply, "i", &id) > 0) ids.push_back(id);
    sd_bus_message_exit_container(reply);
    return ids;
  }
  void send(std::int32_t id, const char* event) {
    EXPECT_TRUE(panel_->callMenu("Event", "isvu", id, event, "i", 0, 0U));
  }
};

TEST_F(DBusMenuTest, PublishesAllRows) {
  const auto root = panel_->layout();
  ASSERT_EQ(root.children.size(), 4U);
  EXPECT_EQ(root.children[0].properties,
            (Properties{{"label", "Open Zephyl"}, {"enabled", "true"}}));
  EXPECT_EQ(root.children[1].properties, (Properties{{"type", "separator"}}));
  EXPECT_EQ(root.children[2].properties,
            (Properties{{"label", "Reachable"}, {"enabled", "false"}}));
  ASSERT_EQ(root.children[3].children.size(), 1U);
  EXPECT_EQ(root.children[3].children[0].label(), "Patient Hill");
}

TEST_F(DBusMenuTest, AHostReadsAsDeepAsItWants) {
  EXPECT_TRUE(panel_->layout(0, 0).children.empty());
  const auto root = panel_->layout(0, 1);
  ASSERT_EQ(root.children.size(), 4U);
  EXPECT_TRUE(root.children[3].children.empty());
  EXPECT_EQ(panel_->layout(root.children[3].id, 1).children.size(), 1U);
  EXPECT_FALSE(panel_->callMenu("GetLayout", "iias", unknown, -1, 0));
  EXPECT_EQ(panel_->lastError(), SD_BUS_ERROR_INVALID_ARGS);
}

TEST_F(DBusMenuTest, AHostReadsOneProperty) {
  const auto id = panel_->idOf("Open Zephyl");
  const auto reply = panel_->callMenu("GetProperty", "is", id, "label");
  const char* label = nullptr;
  ASSERT_GT(sd_bus_message_read(reply.get(), "v", "s", &label), 0);
  EXPECT_STREQ(label, "Open Zephyl");
  EXPECT_FALSE(panel_->callMenu("GetProperty", "is", id, "no-such-property"));
  EXPECT_EQ(panel_->lastError(), SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_FALSE(panel_->callMenu("GetProperty", "is", unknown, "label"));
  EXPECT_EQ(panel_->lastError(), SD_BUS_ERROR_INVALID_ARGS);
}

TEST_F(DBusMenuTest, AHostReadsNamedPropertiesOfSomeRows) {
  const auto id = panel_->idOf("Reachable");
  const auto reply =
      panel_->callMenu("GetGroupProperties", "aias", 2, id, unknown, 2, "label", "icon-data");
  ASSERT_TRUE(reply);
  sd_bus_message_enter_container(reply.get(), 'a', "(ia{sv})");
  ASSERT_GT(sd_bus_message_enter_container(reply.get(), 'r', "ia{sv}"), 0);
  std::int32_t read = 0;
  sd_bus_message_read(reply.get(), "i", &read);
  EXPECT_EQ(read, id);
  EXPECT_EQ(test::PanelProgram::readProperties(*reply), (Properties{{"label", "Reachable"}}));
  sd_bus_message_exit_container(reply.get());
  EXPECT_EQ(sd_bus_message_at_end(reply.get(), 0), 1) << "there is no other row";
}

TEST_F(DBusMenuTest, AHostReadsThePropertiesOfAllRows) {
  const auto reply = panel_->callMenu("GetGroupProperties", "aias", 0, 0);
  ASSERT_TRUE(reply);
  int rows = 0;
  sd_bus_message_enter_container(reply.get(), 'a', "(ia{sv})");
  while (sd_bus_message_skip(reply.get(), "(ia{sv})") > 0) ++rows;
  EXPECT_EQ(rows, 6) << "the root, its rows and the row of the submenu";
}

TEST_F(DBusMenuTest, DescribesItself) {
  const auto property = [this](const char* name, const char* contents) {
    return panel_->property(DBusMenu::path, "com.canonical.dbusmenu", name, contents);
  };
  std::uint32_t version = 0;
  EXPECT_GT(sd_bus_message_read(property("Version", "u").get(), "u", &version), 0);
  EXPECT_EQ(version, 3U);
  EXPECT_EQ(readString(*property("TextDirection", "s")), "ltr");
  EXPECT_EQ(readString(*property("Status", "s")), "normal");
  EXPECT_TRUE(property("IconThemePath", "as"));
}

TEST_F(DBusMenuTest, AClickChoosesAnEnabledRowWithAnAction) {
  send(panel_->idOf("Open Zephyl"), "clicked");
  EXPECT_TRUE(runUntil([this] { return events_ == Strings{"open"}; }));
  send(panel_->idOf("Reachable"), "clicked");
  send(panel_->idOf("Servers"), "clicked");
  send(unknown, "clicked");
  send(panel_->idOf("Open Zephyl"), "hovered");
  settle();
  EXPECT_EQ(events_, Strings{"open"});
}

TEST_F(DBusMenuTest, HandlesAGroupOfEventsAndNamesTheUnknownRows) {
  const auto reply = panel_->callMenu("EventGroup", "a(isvu)", 2, unknown, "clicked", "i", 0, 0U,
                                      panel_->idOf("Open Zephyl"), "clicked", "i", 0, 0U);
  ASSERT_TRUE(reply);
  EXPECT_EQ(ids(reply.get()), std::vector<std::int32_t>{unknown});
  EXPECT_TRUE(runUntil([this] { return events_ == Strings{"open"}; }));
}

TEST_F(DBusMenuTest, OpensAndClosesWithTheHost) {
  const auto reply = panel_->callMenu("AboutToShow", "i", 0);
  int needsUpdate = 1;
  ASSERT_GT(sd_bus_message_read(reply.get(), "b", &needsUpdate), 0);
  EXPECT_EQ(needsUpdate, 0);
  EXPECT_TRUE(runUntil([this] { return events_ == Strings{"needsUpdate", "willOpen"}; }));
  send(0, "opened");
  send(0, "closed");
  EXPECT_TRUE(runUntil([this] {
    return events_ == Strings{"needsUpdate", "willOpen", "didClose"};
  }));
}

TEST_F(DBusMenuTest, AnAnnouncementOfAGroupNamesTheUnknownRows) {
  const auto reply = panel_->callMenu("AboutToShowGroup", "ai", 2, 0, unknown);
  ASSERT_TRUE(reply);
  EXPECT_TRUE(ids(reply.get()).empty()) << "no row needs an update";
  EXPECT_EQ(ids(reply.get()), std::vector<std::int32_t>{unknown});
  EXPECT_TRUE(runUntil([this] { return events_ == Strings{"needsUpdate", "willOpen"}; }));
}

TEST_F(DBusMenuTest, AnAnnouncementOfASubmenuDoesNotOpenTheMenu) {
  EXPECT_TRUE(panel_->callMenu("AboutToShow", "i", panel_->idOf("Servers")));
  EXPECT_TRUE(panel_->callMenu("AboutToShowGroup", "ai", 1, panel_->idOf("Servers")));
  settle();
  EXPECT_TRUE(events_.empty());
}

TEST_F(DBusMenuTest, AMenuWhoseHostLeavesTheBusIsClosed) {
  panel_->callMenu("AboutToShow", "i", 0);
  ASSERT_TRUE(runUntil([this] { return events_.size() == 2; }));
  panel_.reset();
  EXPECT_TRUE(test::eventually([this] {
    mainLoop_.runPending();
    return events_.back() == "didClose";
  }));
}

TEST_F(DBusMenuTest, SignalsChangedRowsToAReader) {
  panel_->layout();
  auto menu = menu_;
  menu[0].title = "Open Window";
  shown().setMenu(menu);
  EXPECT_TRUE(runUntil([this] { return panel_->signalsOf("ItemsPropertiesUpdated") == 1; }));
  EXPECT_EQ(panel_->signalsOf("LayoutUpdated"), 0);
  clock_.advance(BusSignalThrottle::window);
  menu.push_back(item("quit", "Quit Zephyl"));
  shown().setMenu(menu);
  EXPECT_TRUE(runUntil([this] { return panel_->signalsOf("LayoutUpdated") == 1; }));
  EXPECT_EQ(panel_->layout().children.size(), 5U);
}

}  // namespace
}  // namespace zephyl
