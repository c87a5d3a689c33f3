#include "Desktop/Headless/HeadlessDesktop.hpp"

#include <optional>

#include <gtest/gtest.h>

#include "Support/ManualClock.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class HeadlessDesktopTest : public ::testing::Test {
 protected:
  void show(const std::string& description) { desktop_.statusItem().setDescription(description); }
  void advance(Duration step) {
    clock_.advance(step, [this] { mainLoop_.runPending(); });
  }

  /// Returns the output on standard error since the last call.
  static std::string logged() {
    auto text = ::testing::internal::GetCapturedStderr();
    ::testing::internal::CaptureStderr();
    return text;
  }

  void SetUp() override { ::testing::internal::CaptureStderr(); }
  void TearDown() override { (void)::testing::internal::GetCapturedStderr(); }

  MainLoop mainLoop_;
  test::ManualClock clock_;
  HeadlessDesktop desktop_{mainLoop_, clock_};
};

TEST_F(HeadlessDesktopTest, LogsOneLineForEachChange) {
  show("reachable, 1 folder");
  show("reachable, 1 folder");
  EXPECT_EQ(logged(), "[tray] reachable, 1 folder\n");
  advance(1s);
  show("reachable, 1 folder");
  EXPECT_EQ(logged(), "");
  show("reachable, 2 folders");
  EXPECT_EQ(logged(), "[tray] reachable, 2 folders\n");
}

TEST_F(HeadlessDesktopTest, QuickChangesAreLoggedAsOneLine) {
  for (int i = 0; i <= 100; ++i) show("indexing " + std::to_string(i) + "/100");
  EXPECT_EQ(logged(), "[tray] indexing 0/100\n");
  advance(HeadlessDesktop::logInterval);
  EXPECT_EQ(logged(), "[tray] indexing 100/100\n");
}

TEST_F(HeadlessDesktopTest, AChangeThatIsRevertedQuicklyIsNotLogged) {
  show("a");
  show("b");
  show("a");
  advance(1s);
  EXPECT_EQ(logged(), "[tray] a\n");
}

TEST_F(HeadlessDesktopTest, NamesWhatItDoesNotOpen) {
  desktop_.openURL("http://server.test/");
  EXPECT_NE(logged().find("http://server.test/"), std::string::npos);
  desktop_.openFile("/tmp/agent.log", Editor::textEdit);
  EXPECT_NE(logged().find("/tmp/agent.log"), std::string::npos);
}

TEST_F(HeadlessDesktopTest, AFolderThatCannotBeChosenIsAnErrorAtOnce) {
  std::optional<FolderChoice> choice;
  desktop_.chooseFolder({}, [&](FolderChoice made) { choice = std::move(made); });
  ASSERT_TRUE(choice);
  EXPECT_FALSE(choice->answered);
  EXPECT_FALSE(choice->answer);
}

}  // namespace
}  // namespace zephyl
