#include "ZephylTray/Actions/LogFile.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

class LogFileTest : public ::testing::Test {
 protected:
  static std::string contents(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  const std::chrono::system_clock::time_point now_{std::chrono::hours(1)};
  test::TemporaryDirectory directory_;
  test::ScopedVariable temporary_{"TMPDIR", directory_.path()};
};

TEST_F(LogFileTest, IsReadableByThisUserOnly) {
  const auto path = writeLogFile("a\nb", now_);
  ASSERT_TRUE(path);
  EXPECT_TRUE(path->starts_with(directory_ / "zephyl-agent-log-")) << *path;
  EXPECT_EQ(contents(*path), "a\nb");
  EXPECT_EQ(std::filesystem::status(*path).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(LogFileTest, IsNeverWrittenThroughALink) {
  const auto path = writeLogFile("a", now_);
  ASSERT_TRUE(path);
  const auto victim = directory_.write("victim", "precious");
  std::filesystem::remove(*path);
  std::filesystem::create_symlink(victim, *path);
  EXPECT_EQ(writeLogFile("b", now_), path);
  EXPECT_FALSE(std::filesystem::is_symlink(*path));
  EXPECT_EQ(contents(victim), "precious");
}

TEST_F(LogFileTest, IsNulloptIfTheDirectoryIsNotWritable) {
  std::filesystem::remove_all(directory_.path());
  EXPECT_EQ(writeLogFile("a", now_), std::nullopt);
}

}  // namespace
}  // namespace zephyl
