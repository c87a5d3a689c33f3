#include "ZephylTray/Menu/StatusItemController.hpp"

#include <optional>

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/ManualClock.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {
namespace {

/// A controller of an item that records what it shows. The test sets the state.
class StatusItemControllerTest : public ::testing::Test {
 protected:
  StatusItemControllerTest() { controller_->start(); }

  AgentSnapshot agent_;
  bool known_ = false;
  int menusRead_ = 0;
  std::optional<TrayAction> performed_;
  test::FakeDesktop::Item item_;
  MainLoop mainLoop_;
  test::ManualClock clock_;
  std::shared_ptr<StatusItemController> controller_ = std::make_shared<StatusItemController>(
      mainLoop_, clock_, item_,
      StatusItemController::Port{
          .summary =
              [this] {
                return StatusItemController::Summary{
                    .agent = agent_, .known = known_, .tailnets = {2, 1}};
              },
          .menu =
              [this] {
                ++menusRead_;
                return StatusMenuState{.agent = agent_};
              },
          .perform = [this](const TrayAction& action) { performed_ = action; },
      });
};

TEST_F(StatusItemControllerTest, HasAMenuAtOnceAndADescriptionWhenTheStateIsKnown) {
  EXPECT_FALSE(item_.menu.empty());
  EXPECT_EQ(item_.descriptionsSet, 0);
  known_ = true;
  controller_->rebuildMenu();
  EXPECT_EQ(item_.description, "agent not reachable, 1 of 2 servers connected");
}

TEST_F(StatusItemControllerTest, SetsTitleDescriptionAndMenuOncePerChange) {
  known_ = true;
  item_.titlesSet = item_.descriptionsSet = item_.menusSet = 0;
  agent_.reachable = true;
  agent_.roots = {{.root = "/a", .name = "a"}};
  agent_.activity = Activity{.busy = true};
  controller_->rebuildMenu();
  EXPECT_EQ(item_.icon, StatusIcon::busy);
  EXPECT_EQ(item_.title, " 1");
  EXPECT_EQ(item_.titlesSet, 1);
  EXPECT_EQ(item_.descriptionsSet, 1);
  EXPECT_EQ(item_.menusSet, 1);
}

TEST_F(StatusItemControllerTest, DoesNotChangeAnOpenMenuButUpdatesTheRest) {
  known_ = true;
  item_.events.willOpen();
  const int before = item_.menusSet;
  agent_.reachable = true;
  controller_->rebuildMenu();
  EXPECT_EQ(item_.menusSet, before);
  EXPECT_EQ(item_.title, " 0");
  EXPECT_EQ(item_.description, "reachable, 0 folders, 1 of 2 servers connected");
  item_.events.didClose();
  item_.events.needsUpdate();
  EXPECT_EQ(item_.menusSet, before + 1);
}

TEST_F(StatusItemControllerTest, ProgressDoesNotRebuildTheMenu) {
  known_ = true;
  agent_.reachable = true;
  agent_.activity = Activity{.busy = true};
  const int before = menusRead_;
  controller_->showEvent(false);
  EXPECT_EQ(item_.icon, StatusIcon::busy);
  EXPECT_EQ(item_.descriptionsSet, 1);
  EXPECT_EQ(menusRead_, before);
}

TEST_F(StatusItemControllerTest, ForwardsChosenActions) {
  item_.events.chosen(MenuAction(TrayAction(menuActions::ConnectServer("id-1"))));
  EXPECT_EQ(performed_, TrayAction(menuActions::ConnectServer("id-1")));
}

TEST_F(StatusItemControllerTest, IgnoresAnUnknownAction) {
  item_.events.chosen(MenuAction(1));
  EXPECT_FALSE(performed_);
}

TEST_F(StatusItemControllerTest, DoesNothingAfterItsDestruction) {
  const auto before = item_.menusSet;
  controller_.reset();
  item_.events.needsUpdate();
  item_.events.chosen(MenuAction(TrayAction(menuActions::Quit())));
  EXPECT_EQ(item_.menusSet, before);
  EXPECT_FALSE(performed_);
}

TEST_F(StatusItemControllerTest, ShowsAFloodOfEventsTogether) {
  using Controller = StatusItemController;
  const auto show = [this] { controller_->showEvent(true); };
  menusRead_ = 0;
  for (int i = 0; i < 1000; ++i) show();
  EXPECT_EQ(menusRead_, Controller::maxEventsShown);
  const auto settle = [this] { mainLoop_.runPending(); };
  clock_.advance(Controller::eventWindow - Duration(1), settle);
  EXPECT_EQ(menusRead_, Controller::maxEventsShown);
  clock_.advance(Duration(1), settle);
  EXPECT_EQ(menusRead_, Controller::maxEventsShown + 1);
  show();
  EXPECT_EQ(menusRead_, Controller::maxEventsShown + 2) << "the flood is over";
}

TEST_F(StatusItemControllerTest, ProgressThatFollowsAChangeOfTheMenuDoesNotHideIt) {
  const auto settle = [this] { mainLoop_.runPending(); };
  for (int i = 0; i < StatusItemController::maxEventsShown; ++i) controller_->showEvent(false);
  menusRead_ = 0;
  controller_->showEvent(true);
  controller_->showEvent(false);
  EXPECT_EQ(menusRead_, 0);
  clock_.advance(StatusItemController::eventWindow, settle);
  EXPECT_EQ(menusRead_, 1);
}

TEST_F(StatusItemControllerTest, OpeningTheMenuWaitsForNoEvents) {
  for (int i = 0; i < 10; ++i) controller_->showEvent(true);
  menusRead_ = 0;
  item_.events.needsUpdate();
  EXPECT_EQ(menusRead_, 1);
}

}  // namespace
}  // namespace zephyl
