#include "Desktop/Freedesktop/Menu/MenuSession.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using enum MenuSession::Event;
using Events = MenuSession::Events;

constexpr auto host = ":1.5";

class MenuSessionTest : public ::testing::Test {
 protected:
  void wait(Duration step) { now_ += step; }

  Instant now_{1h};
  MenuSession session_;
};

TEST_F(MenuSessionTest, TheRootIsUpdatedBeforeItOpens) {
  EXPECT_EQ(session_.aboutToShowRoot(host, now_), (Events{needsUpdate, willOpen}));
  EXPECT_TRUE(session_.isOpen());
  EXPECT_EQ(session_.opened(host, true, now_), Events{});
  EXPECT_EQ(session_.closedRoot(host), Events{didClose});
  EXPECT_FALSE(session_.isOpen());
}

TEST_F(MenuSessionTest, AHostThatSendsOpenedFirstGetsNoUpdateWhileOpen) {
  EXPECT_EQ(session_.opened(host, true, now_), Events{willOpen});
  wait(900ms);
  EXPECT_EQ(session_.aboutToShowRoot(host, now_), Events{});
}

TEST_F(MenuSessionTest, AnOpenedSubmenuOpensTheMenu) {
  EXPECT_EQ(session_.opened(host, false, now_), Events{willOpen});
  EXPECT_EQ(session_.opened(host, false, now_), Events{});
  EXPECT_EQ(session_.closedRoot(host), Events{didClose});
}

TEST_F(MenuSessionTest, AClickCloses) {
  (void)session_.aboutToShowRoot(host, now_);
  EXPECT_EQ(session_.clicked(), Events{didClose});
  EXPECT_EQ(session_.closedRoot(host), Events{});
  EXPECT_EQ(session_.clicked(), Events{});
}

TEST_F(MenuSessionTest, AHostThatLeavesCloses) {
  (void)session_.opened(host, true, now_);
  EXPECT_EQ(session_.hostGone(), Events{didClose});
  EXPECT_EQ(session_.hostGone(), Events{});
}

TEST_F(MenuSessionTest, IsClosedAfterAHalfMinuteOfSilence) {
  (void)session_.aboutToShowRoot(host, now_);
  EXPECT_EQ(session_.deadline(), now_ + 30s);
  wait(20s);
  session_.called(now_);
  wait(10s);
  EXPECT_EQ(session_.expire(now_), Events{});
  EXPECT_EQ(session_.deadline(), now_ + 20s);
  wait(20s);
  EXPECT_EQ(session_.expire(now_), Events{didClose});
  EXPECT_EQ(session_.deadline(), std::nullopt);
  EXPECT_EQ(session_.expire(now_), Events{});
}

TEST_F(MenuSessionTest, StaysOpenHoweverLongOnAHostThatSendsClosed) {
  (void)session_.aboutToShowRoot(host, now_);
  (void)session_.closedRoot(host);
  (void)session_.aboutToShowRoot(host, now_);
  EXPECT_EQ(session_.deadline(), std::nullopt);
  wait(1h);
  EXPECT_EQ(session_.expire(now_), Events{});
  EXPECT_TRUE(session_.isOpen());
  EXPECT_EQ(session_.closedRoot(host), Events{didClose});
}

TEST_F(MenuSessionTest, ASilentMenuIsClosedOnAHostThatNeverSendsClosed) {
  (void)session_.closedRoot(":1.6");
  (void)session_.aboutToShowRoot(host, now_);
  EXPECT_EQ(session_.host(), host);
  EXPECT_EQ(session_.deadline(), now_ + 30s);
  wait(30s);
  EXPECT_EQ(session_.expire(now_), Events{didClose});
  EXPECT_EQ(session_.host(), "");
}

TEST_F(MenuSessionTest, AMenuThatWasNotReportedClosedIsUpdatedWhenItOpensAgain) {
  (void)session_.opened(host, true, now_);
  wait(1001ms);
  EXPECT_EQ(session_.aboutToShowRoot(host, now_), (Events{didClose, needsUpdate, willOpen}));
}

TEST_F(MenuSessionTest, AnOpeningLongAfterTheAnnouncementIsAnotherOne) {
  (void)session_.aboutToShowRoot(host, now_);  // as GNOME's extension does when it connects
  wait(1001ms);
  EXPECT_EQ(session_.opened(host, true, now_), (Events{didClose, needsUpdate, willOpen}));
  EXPECT_EQ(session_.aboutToShowRoot(host, now_), Events{});
}

TEST_F(MenuSessionTest, AMenuThatOpensTwiceWasClosedInBetween) {
  (void)session_.opened(host, true, now_);
  wait(1001ms);
  EXPECT_EQ(session_.opened(host, true, now_), (Events{didClose, needsUpdate, willOpen}));
}

TEST_F(MenuSessionTest, AnOpenedSubmenuNeverUpdatesTheMenuUnderThePointer) {
  (void)session_.aboutToShowRoot(host, now_);
  wait(5s);
  EXPECT_EQ(session_.opened(host, false, now_), Events{});
}

TEST_F(MenuSessionTest, AHostThatAnnouncesTheRootAgainAtOnceGetsTheNewMenu) {
  (void)session_.aboutToShowRoot(host, now_);
  EXPECT_EQ(session_.aboutToShowRoot(host, now_), (Events{didClose, needsUpdate, willOpen}));
}

TEST_F(MenuSessionTest, AnOpenMenuIsNotUpdatedWhenItsHostAnnouncesItAgain) {
  (void)session_.aboutToShowRoot(host, now_);
  (void)session_.opened(host, true, now_);
  EXPECT_EQ(session_.aboutToShowRoot(host, now_), Events{});
}

TEST_F(MenuSessionTest, OpensAgainAtOnceAfterItWasClosed) {
  (void)session_.aboutToShowRoot(host, now_);
  (void)session_.closedRoot(host);
  EXPECT_EQ(session_.aboutToShowRoot(host, now_), (Events{needsUpdate, willOpen}));
}

}  // namespace
}  // namespace zephyl
