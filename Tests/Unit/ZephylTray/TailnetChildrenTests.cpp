#include "ZephylTray/Tailnet/TailnetChildren.hpp"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Support/FakeLauncher.hpp"
#include "Support/ManualClock.hpp"
#include "ZephylTray/Tailnet/PublishedTailnet.hpp"

namespace zephyl {
namespace {

/// A pair of fake children, on a queue that the test runs itself.
class TailnetChildrenTest : public ::testing::Test {
 protected:
  TailnetChildrenTest() {
    pair_->setDaemon(daemon_);
    pair_->setClient(client_);
    children_.setPair(pair_);
  }

  void end(const std::string& name) {
    children_.whenEnded([this, name] { ended_.push_back(name); });
    children_.end();
  }

  /// Ends a child, and reports it like its supervisor.
  void exit(test::FakeChild& child) {
    if (child.isRunning()) child.exit({});
    children_.handleExit();
  }

  /// Runs the tasks that are due after the grace.
  void passGrace() {
    for (const auto& task : std::exchange(delayed_, {})) task();
  }

  test::ManualClock clock_;
  PublishedTailnet published_;
  std::vector<Task> delayed_;
  std::shared_ptr<test::FakeChild> daemon_ =
      std::make_shared<test::FakeChild>(101, ProcessOptions());
  std::shared_ptr<test::FakeChild> client_ =
      std::make_shared<test::FakeChild>(102, ProcessOptions());
  std::shared_ptr<TailnetPair> pair_ = std::make_shared<TailnetPair>();
  std::vector<std::string> ended_;
  TailnetChildren children_{clock_, published_, [this](Duration delay, Task task) {
                              EXPECT_EQ(delay, TailnetChildren::grace);
                              delayed_.push_back(std::move(task));
                            }};
};

TEST_F(TailnetChildrenTest, RunWhileBothChildrenDo) {
  EXPECT_TRUE(children_.isRunning());
  daemon_->exit({});
  EXPECT_FALSE(children_.isRunning());
}

TEST_F(TailnetChildrenTest, ThatEndAtOnceLeaveNoPair) {
  end("first");
  EXPECT_EQ(ended_, std::vector<std::string>{"first"});
  EXPECT_EQ(children_.pair(), nullptr);
  EXPECT_TRUE(delayed_.empty());
}

TEST_F(TailnetChildrenTest, TheEndOfNoPairIsImmediate) {
  children_.setPair(nullptr);
  end("first");
  EXPECT_EQ(ended_, std::vector<std::string>{"first"});
}

TEST_F(TailnetChildrenTest, EachChildHasItsOwnGraceAndIsThenKilled) {
  client_->ignoreTermination();
  daemon_->ignoreTermination();
  end("first");
  EXPECT_FALSE(children_.isRunning());
  ASSERT_EQ(delayed_.size(), 1U);
  passGrace();
  EXPECT_FALSE(client_->isRunning());
  EXPECT_TRUE(daemon_->isRunning());
  exit(*client_);
  EXPECT_TRUE(ended_.empty());
  ASSERT_EQ(delayed_.size(), 1U);
  passGrace();
  exit(*daemon_);
  EXPECT_EQ(ended_, std::vector<std::string>{"first"});
  EXPECT_EQ(published_.recentLog(),
            (std::vector<std::string>{"[tray] 102 ignored SIGTERM; killing it",
                                      "[tray] 101 ignored SIGTERM; killing it"}));
}

TEST_F(TailnetChildrenTest, AChildThatEndsInItsGraceIsNotKilled) {
  daemon_->ignoreTermination();
  end("first");
  exit(*daemon_);
  passGrace();
  EXPECT_FALSE(published_.hasLog());
}

TEST_F(TailnetChildrenTest, FurtherRequestsStartNoSecondGraceAndAreAnsweredInOrder) {
  daemon_->ignoreTermination();
  end("first");
  end("second");
  EXPECT_EQ(delayed_.size(), 1U);
  EXPECT_EQ(daemon_->terminateRequests(), 1);
  exit(*daemon_);
  EXPECT_EQ(ended_, (std::vector<std::string>{"first", "second"}));
}

TEST_F(TailnetChildrenTest, AnExitWithoutARequestEndsNothing) {
  exit(*client_);
  EXPECT_TRUE(daemon_->isRunning());
  EXPECT_EQ(children_.pair(), pair_);
}

TEST_F(TailnetChildrenTest, ThoseThatStillRunAtTheDeadlineAreKilled) {
  daemon_->ignoreTermination();
  children_.requestEnd();
  children_.awaitEnd(*pair_, clock_.now());
  EXPECT_FALSE(daemon_->isRunning());
  EXPECT_EQ(published_.recentLog(),
            std::vector<std::string>{"[tray] 101 ignored SIGTERM; killing it"});
}

}  // namespace
}  // namespace zephyl
