#include "ZephylTray/App/ReplacementNotice.hpp"

#include <vector>

#include <gtest/gtest.h>

#include "Support/LogCapture.hpp"

namespace zephyl {
namespace {

class ReplacementNoticeTest : public ::testing::Test {
 protected:
  void check(int times) {
    for (int count = 0; count < times; ++count) notice_.check();
  }

  bool isReplaced_ = false;
  bool isUpdatingItself_ = false;
  std::vector<Notification> notifications_;
  ReplacementNotice notice_{{
      .isReplaced = [this] { return isReplaced_; },
      .isUpdatingItself = [this] { return isUpdatingItself_; },
      .notify = [this](const Notification& each) { notifications_.push_back(each); },
  }};
};

TEST_F(ReplacementNoticeTest, DoesNothingWhileTheProgramIsUnchanged) {
  EXPECT_EQ(test::logOf([this] { check(10); }), "");
  EXPECT_TRUE(notifications_.empty());
}

TEST_F(ReplacementNoticeTest, ReportsOnceThatTheProgramWasReplaced) {
  isReplaced_ = true;
  const auto log = test::logOf([this] { check(10); });
  EXPECT_EQ(log,
            "[tray] zephyl-tray was updated; quit it and start it again to use the new version\n");
  ASSERT_EQ(notifications_.size(), 1U);
  EXPECT_EQ(notifications_[0].title, "Zephyl was updated");
}

TEST_F(ReplacementNoticeTest, ReportsAReplacementOnlyAtTheSecondCheck) {
  isReplaced_ = true;
  check(1);
  EXPECT_TRUE(notifications_.empty());
  check(1);
  EXPECT_EQ(notifications_.size(), 1U);
}

TEST_F(ReplacementNoticeTest, ForgetsAReplacementThatWasUndone) {
  for (int round = 0; round < 5; ++round) {
    isReplaced_ = true;
    check(1);
    isReplaced_ = false;
    check(1);
  }
  EXPECT_TRUE(notifications_.empty());
}

TEST_F(ReplacementNoticeTest, DoesNothingWhileTheProgramUpdatesItself) {
  isReplaced_ = true;
  isUpdatingItself_ = true;
  check(10);
  EXPECT_TRUE(notifications_.empty());
}

}  // namespace
}  // namespace zephyl
