#include "ZephylTray/Commands/Protocol/CommandSocket.hpp"

#include <filesystem>
#include <optional>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "Support/LogCapture.hpp"
#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

class CommandSocketTest : public ::testing::Test {
 protected:
  CommandSocketTest() {
    std::filesystem::create_directory(runtime_);
    std::filesystem::create_directory(base_);
  }
  [[nodiscard]] std::string inBase() const { return base_ + "/tray.sock"; }

  test::TemporaryDirectory directory_;
  const std::string runtime_ = directory_ / "run";
  const std::string base_ = directory_ / "base";
  test::ScopedVariable variable_{"XDG_RUNTIME_DIR", runtime_};
};

TEST_F(CommandSocketTest, IsInTheRuntimeDirectoryForThisUserOnly) {
  const auto socket = CommandSocket::listen(base_);
  ASSERT_TRUE(socket) << socket.error().message;
  EXPECT_TRUE(socket->path().starts_with(runtime_ + "/com.zephyl.tray/"));
  EXPECT_TRUE(socket->path().ends_with(".sock"));
  EXPECT_EQ(modeOf(socket->path()), 0600U);
  EXPECT_EQ(modeOf(runtime_ + "/com.zephyl.tray"), 0700U);
  EXPECT_EQ(CommandSocket::places(base_), (std::vector{socket->path(), inBase()}));
  EXPECT_TRUE(CommandSocket::connect(socket->path()));
}

TEST_F(CommandSocketTest, DependsOnTheBaseDirectoryButNotOnItsSpelling) {
  const auto place = [](const std::string& base) { return CommandSocket::places(base).front(); };
  EXPECT_NE(place(base_), place(directory_ / "other"));
  EXPECT_EQ(place(base_), place(base_ + "/"));
  std::filesystem::create_symlink(base_, directory_ / "link");
  EXPECT_EQ(place(base_), place(directory_ / "link"));
}

TEST_F(CommandSocketTest, IsInTheBaseDirectoryWithoutARuntimeDirectory) {
  for (const auto* directory : {"", "run", "/nowhere"}) {
    const test::ScopedVariable variable("XDG_RUNTIME_DIR", directory);
    const auto socket = CommandSocket::listen(base_);
    ASSERT_TRUE(socket) << socket.error().message;
    EXPECT_EQ(socket->path(), inBase());
    EXPECT_EQ(modeOf(inBase()), 0600U);
  }
}

TEST_F(CommandSocketTest, AvoidsADirectoryThatOthersMayEnter) {
  std::filesystem::create_directory(runtime_ + "/com.zephyl.tray");
  ::chmod((runtime_ + "/com.zephyl.tray").c_str(), 0755);
  const auto log = test::logOf([&] {
    const auto socket = CommandSocket::listen(base_);
    ASSERT_TRUE(socket);
    EXPECT_EQ(socket->path(), inBase());
  });
  EXPECT_NE(log.find("it needs mode 0700"), std::string::npos);
}

TEST_F(CommandSocketTest, ReplacesTheSocketOfAnEarlierTray) {
  const auto path = CommandSocket::places(base_).front();
  {
    const auto killed = CommandSocket::listen(base_);
    std::filesystem::create_hard_link(path, directory_ / "kept");
  }
  std::filesystem::rename(directory_ / "kept", path);
  EXPECT_EQ(CommandSocket::connect(path).error().value(), ECONNREFUSED);
  const auto socket = CommandSocket::listen(base_);
  ASSERT_TRUE(socket) << socket.error().message;
  EXPECT_TRUE(CommandSocket::connect(path));
}

TEST_F(CommandSocketTest, KeepsAFileThatIsNoSocket) {
  const test::ScopedVariable variable("XDG_RUNTIME_DIR");
  directory_.write("base/tray.sock", "mine");
  EXPECT_EQ(CommandSocket::listen(base_).error().message, inBase() + " exists and is not a socket");
  EXPECT_TRUE(std::filesystem::exists(inBase()));
}

TEST_F(CommandSocketTest, IsRemovedAtTheEndUnlessItWasReplaced) {
  const auto path = CommandSocket::places(base_).front();
  { const auto socket = CommandSocket::listen(base_); }
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(CommandSocket::connect(path).error().value(), ENOENT);
  {
    std::optional<CommandSocket> first(*CommandSocket::listen(base_));
    const auto second = CommandSocket::listen(base_);
    first.reset();
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(CommandSocket::connect(path));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(CommandSocketTest, MayHaveALongPath) {
  const test::ScopedVariable variable("XDG_RUNTIME_DIR");
  const auto deep = base_ + "/" + std::string(150, 'd');
  std::filesystem::create_directory(deep);
  const auto socket = CommandSocket::listen(deep);
  ASSERT_TRUE(socket) << socket.error().message;
  EXPECT_TRUE(CommandSocket::connect(deep + "/tray.sock"));
}

}  // namespace
}  // namespace zephyl
