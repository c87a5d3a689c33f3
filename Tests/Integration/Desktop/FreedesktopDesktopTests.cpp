#include "Desktop/Freedesktop/Bus/BusText.hpp"
#include "FreedesktopDesktopTest.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

class StatusNotifierItemTest : public test::FreedesktopDesktopTest {};

TEST_F(StatusNotifierItemTest, RegistersByItsPathAndAgainForAnotherHost) {
  EXPECT_EQ(panel_->registered(), Strings{StatusNotifierItem::path});
  panel_->emit("/StatusNotifierWatcher", test::PanelProgram::watcher,
               "StatusNotifierHostRegistered", "");
  EXPECT_TRUE(runUntil([this] { return panel_->registered().size() == 2; }));
}

TEST_F(StatusNotifierItemTest, PublishesItsStateAsProperties) {
  shown().setTitle("3");
  shown().setDescription("reachable & idle");
  EXPECT_TRUE(runUntil([this] { return panel_->itemText("XAyatanaLabel") == "3"; }));
  EXPECT_EQ(panel_->itemText("XAyatanaLabelGuide"), "3");
  EXPECT_EQ(panel_->itemText("Category"), "ApplicationStatus");
  EXPECT_EQ(panel_->itemText("Id"), "zephyl-tray");
  EXPECT_EQ(panel_->itemText("Status"), "Active");
  EXPECT_EQ(panel_->itemText("Title"), withoutMarkup("Zephyl: reachable & idle"));
  EXPECT_EQ(panel_->itemText("IconAccessibleDesc"), "Zephyl: reachable & idle");
  EXPECT_EQ(panel_->itemText("OverlayIconName"), "");
  EXPECT_EQ(panel_->itemText("AttentionIconName"), "");
}

TEST_F(StatusNotifierItemTest, IsAMenuWithoutAWindow) {
  int flag = 0;
  const char* path = nullptr;
  std::int32_t window = -1;
  std::uint32_t order = 7;
  EXPECT_GT(sd_bus_message_read(panel_->itemProperty("ItemIsMenu", "b").get(), "b", &flag), 0);
  EXPECT_EQ(flag, 1);
  const auto menu = panel_->itemProperty("Menu", "o");
  EXPECT_GT(sd_bus_message_read(menu.get(), "o", &path), 0);
  EXPECT_STREQ(path, DBusMenu::path);
  EXPECT_GT(sd_bus_message_read(panel_->itemProperty("WindowId", "i").get(), "i", &window), 0);
  EXPECT_EQ(window, 0);
  const auto index = panel_->itemProperty("XAyatanaOrderingIndex", "u");
  EXPECT_GT(sd_bus_message_read(index.get(), "u", &order), 0);
  EXPECT_EQ(order, 0U);
}

TEST_F(StatusNotifierItemTest, HasAnIconInAllSizesAndNoOverlay) {
  const auto icons = panel_->itemProperty("IconPixmap", "a(iiay)");
  ASSERT_TRUE(icons);
  sd_bus_message_enter_container(icons.get(), 'a', "(iiay)");
  for (const auto& expected : pixmapsOf(StatusIcon::idle)) {
    ASSERT_GT(sd_bus_message_enter_container(icons.get(), 'r', "iiay"), 0);
    std::int32_t width = 0;
    std::int32_t height = 0;
    const void* pixels = nullptr;
    std::size_t size = 0;
    sd_bus_message_read(icons.get(), "ii", &width, &height);
    sd_bus_message_read_array(icons.get(), 'y', &pixels, &size);
    EXPECT_EQ(width, expected.side);
    EXPECT_EQ(height, expected.side);
    EXPECT_EQ(size, expected.pixels.size());
    sd_bus_message_exit_container(icons.get());
  }
  for (const auto* name : {"OverlayIconPixmap", "AttentionIconPixmap"}) {
    const auto empty = panel_->itemProperty(name, "a(iiay)");
    ASSERT_TRUE(empty);
    sd_bus_message_enter_container(empty.get(), 'a', "(iiay)");
    EXPECT_EQ(sd_bus_message_at_end(empty.get(), 0), 1) << name;
  }
}

TEST_F(StatusNotifierItemTest, EscapesTheMarkupOfItsToolTip) {
  shown().setDescription("reachable & idle");
  const auto body = [this] {
    const auto tip = panel_->itemProperty("ToolTip", "(sa(iiay)ss)");
    if (!tip) return std::string("(missing)");
    sd_bus_message_enter_container(tip.get(), 'r', "sa(iiay)ss");
    sd_bus_message_skip(tip.get(), "sa(iiay)s");
    return readString(*tip);
  };
  EXPECT_TRUE(runUntil([&] { return body() == "reachable &amp; idle"; })) << body();
}

TEST_F(StatusNotifierItemTest, SignalsChangesToAReader) {
  shown().setIcon(StatusIcon::busy);
  settle();
  EXPECT_EQ(panel_->signalsOf("NewIcon"), 0) << "nobody has read the state";
  panel_->itemText("Title");
  shown().setIcon(StatusIcon::idle);
  EXPECT_TRUE(runUntil([this] { return panel_->signalsOf("NewIcon") >= 1; }));
  shown().setTitle("3");
  EXPECT_TRUE(runUntil([this] { return panel_->signalsOf("XAyatanaNewLabel") == 1; }));
  clock_.advance(BusSignalThrottle::window);
  shown().setDescription("reachable");
  EXPECT_TRUE(runUntil([this] { return panel_->signalsOf("NewToolTip") == 1; }));
  EXPECT_TRUE(runUntil([this] { return panel_->signalsOf("NewTitle") == 1; }));
}

TEST_F(StatusNotifierItemTest, ItsActivationReopensTheProgram) {
  for (const auto* method : {"Activate", "ContextMenu", "SecondaryActivate"}) {
    reopened_ = 0;
    EXPECT_TRUE(panel_->callItem(method, "ii", 1, 1)) << method;
    EXPECT_TRUE(runUntil([this] { return reopened_ == 1; })) << method;
  }
  EXPECT_TRUE(panel_->callItem("Scroll", "is", 1, "vertical"));
  settle();
  EXPECT_EQ(reopened_, 1);
}

TEST_F(StatusNotifierItemTest, PlasmaOpensTheMenuItself) {
  panel_->own("org.kde.plasmashell");
  EXPECT_TRUE(runUntil([this] { return !panel_->callItem("Activate", "ii", 1, 1); }));
  EXPECT_EQ(panel_->lastError(), SD_BUS_ERROR_NOT_SUPPORTED);
}

/// Records the activation token of each action, like a handler that opens a window.
class ActivationTokenTest : public test::FreedesktopDesktopTest {
 protected:
  void SetUp() override {
    FreedesktopDesktopTest::SetUp();
    const auto consume = [this] { tokens_.push_back(desktop_->consumeActivationToken()); };
    desktop_->setEvents(
        {.reopened = consume, .notificationActivated = [=](const auto&) { consume(); }});
    shown().setMenuEvents({.chosen = [=](const MenuAction&) { consume(); }});
  }

  void provide(const char* token) {
    EXPECT_TRUE(panel_->callItem("ProvideXdgActivationToken", "s", token));
    mainLoop_.runPending();
  }
  void click() {
    EXPECT_TRUE(
        panel_->callMenu("Event", "isvu", panel_->idOf("Open Zephyl"), "clicked", "i", 0, 0U));
  }
  void emitNotificationSignal(const char* member, std::uint32_t id, const char* text) const {
    panel_->emit("/org/freedesktop/Notifications", test::PanelProgram::notificationServer, member,
                 "us", id, text);
  }
  bool received(const Strings& tokens) {
    return runUntil([&] { return tokens_.size() >= tokens.size(); }) && tokens_ == tokens;
  }

  Strings tokens_;
};

TEST_F(ActivationTokenTest, AnActivationTokenIsUsedOnce) {
  provide("token-1");
  click();
  click();
  EXPECT_TRUE(received({"token-1", ""}));
  provide("token-2");
  EXPECT_TRUE(panel_->callItem("Activate", "ii", 1, 1));
  EXPECT_TRUE(received({"token-1", "", "token-2"}));
}

TEST_F(ActivationTokenTest, AProgramThatIsStartedGetsTheToken) {
  shown().setMenuEvents(
      {.chosen = [this](const MenuAction&) { desktop_->openURL("http://server.test/"); }});
  provide("token-1");
  click();
  ASSERT_TRUE(runUntil([this] { return !launcher_.children().empty(); }));
  const auto& environment = launcher_.newest()->options().environment;
  EXPECT_EQ(environment.at("XDG_ACTIVATION_TOKEN"), "token-1");
}

TEST_F(ActivationTokenTest, ATokenThatItsActionDoesNotUseIsDropped) {
  bool handled = false;
  shown().setMenuEvents({.chosen = [&](const MenuAction&) { handled = true; }});
  provide("token-1");
  click();
  ASSERT_TRUE(runUntil([&] { return handled; }));
  EXPECT_EQ(desktop_->consumeActivationToken(), "");
}

TEST_F(ActivationTokenTest, AWindowThatNobodyAskedForGetsNoToken) {
  provide("token-1");
  EXPECT_EQ(desktop_->consumeActivationToken(), "");
  desktop_->openURL("http://server.test/");
  EXPECT_FALSE(launcher_.newest()->options().environment.contains("XDG_ACTIVATION_TOKEN"));
}

TEST_F(ActivationTokenTest, ATokenThatNoActionFollowsExpires) {
  provide("token-1");
  clock_.advance(ActivationTokens::lifetime);
  click();
  EXPECT_TRUE(received({""}));
}

TEST_F(ActivationTokenTest, ATokenBelongsToTheNotificationThatWasChosen) {
  desktop_->postNotification({"first", "One", "Body.", "Show"});
  desktop_->postNotification({"second", "Two", "Body.", "Show"});
  ASSERT_TRUE(runUntil([this] { return panel_->notifications() == Strings{"One", "Two"}; }));
  settle();
  emitNotificationSignal("ActivationToken", 2, "token-2");
  emitNotificationSignal("ActionInvoked", 1, "show");
  emitNotificationSignal("ActionInvoked", 2, "show");
  emitNotificationSignal("ActionInvoked", 2, "show");
  EXPECT_TRUE(received({"", "token-2", ""}));
}

TEST_F(ActivationTokenTest, ASecondStartDoesNotGetTheTokenOfTheItem) {
  const auto activate = [this](const char* token) {
    EXPECT_TRUE(panel_->call("/com/zephyl/tray", "org.freedesktop.Application", "Activate", "a{sv}",
                             1, "activation-token", "s", token));
  };
  provide("token-1");
  activate("");
  activate("token-2");
  EXPECT_TRUE(received({"", "token-2"}));
}

using FreedesktopDesktopTest = test::FreedesktopDesktopTest;

TEST_F(FreedesktopDesktopTest, AChosenNotificationIsReported) {
  desktop_->postNotification({"first", "One", "Body.", "Show"});
  desktop_->postNotification({"second", "Two", "Body.", ""});
  ASSERT_TRUE(runUntil([this] { return panel_->notifications() == Strings{"One", "Two"}; }));
  settle();
  panel_->emit("/org/freedesktop/Notifications", test::PanelProgram::notificationServer,
               "ActionInvoked", "us", 2U, "default");
  EXPECT_TRUE(runUntil([this] { return activated_ == Strings{"second"}; }));
  desktop_->removeNotification("first");
  EXPECT_TRUE(
      runUntil([this] { return panel_->closedNotifications() == std::vector<std::uint32_t>{1}; }));
}

TEST_F(FreedesktopDesktopTest, OpensWebAddressesOnly) {
  desktop_->openURL("file:///etc/passwd");
  EXPECT_TRUE(launcher_.children().empty());
  for (const auto* url : {"http://server.test/", "https://server.test/"}) {
    desktop_->openURL(url);
    EXPECT_EQ(launcher_.newest()->options().arguments, (Strings{"xdg-open", url}));
  }
}

TEST_F(FreedesktopDesktopTest, OpensFilesInTheEditor) {
  const std::pair<Editor, const char*> programs[] = {
      {Editor::cursor, "cursor"}, {Editor::vsCode, "code"}, {Editor::textEdit, "xdg-open"}};
  for (const auto& [editor, program] : programs) {
    desktop_->openFile("/tmp/agent.log", editor);
    EXPECT_EQ(launcher_.newest()->options().arguments, (Strings{program, "/tmp/agent.log"}));
  }
}

}  // namespace
}  // namespace zephyl
