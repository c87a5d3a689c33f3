#include "ZephylTray/Commands/Doctor/FileChecks.hpp"

#include <filesystem>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

using enum FindingState;

TEST(FileChecks, ADirectoryMustBePrivate) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(checkDirectory("d", directory.path()).state, ok);
  EXPECT_EQ(checkDirectory("d", directory / "new/and/deeper").state, ok);
  ::chmod(directory.path().c_str(), 0777);
  const auto finding = checkDirectory("d", directory.path());
  EXPECT_EQ(finding.state, wrong);
  EXPECT_EQ(finding.advice, "Run `chmod o-w " + directory.path() + "`.");
  ::chmod(directory.path().c_str(), 0700);
  EXPECT_EQ(checkDirectory("d", directory.write("file", "")).state, wrong);
}

TEST(FileChecks, ADirectoryOfAnotherUserIsWrong) {
  const test::TemporaryDirectory directory;
  if (::chown(directory.path().c_str(), 54321, 54321) != 0) {
    GTEST_SKIP() << "needs root, to give a directory to another user";
  }
  const auto finding = checkDirectory("d", directory.path());
  EXPECT_EQ(finding.state, wrong);
  EXPECT_NE(finding.message.find("user id 54321"), std::string::npos);
}

TEST(FileChecks, TheRegistryMustBeReadable) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(checkRegistry(directory / "servers.json").state, ok);
  EXPECT_EQ(checkRegistry(directory.write("empty.json", "[]")).state, ok);
  const auto finding = checkRegistry(directory.write("bad.json", R"([{"id":7}])"));
  EXPECT_EQ(finding.state, wrong);
  EXPECT_NE(finding.message.find("[0].id: not a string"), std::string::npos);
}

TEST(FileChecks, TheDiskMustHaveFreeSpace) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(checkSpace(directory / "missing").state, ok);
  for (const auto* full : {"/proc", "/proc/missing/too"}) {
    const auto finding = checkSpace(full);
    EXPECT_EQ(finding.state, wrong) << full;
    EXPECT_NE(finding.message.find("Only 0 KiB are free at " + std::string(full)),
              std::string::npos)
        << finding.message;
    EXPECT_NE(finding.advice, "");
  }
}

TEST(FileChecks, TheSettingsMustHaveTheirTypes) {
  const test::TemporaryDirectory directory;
  const test::ScopedVariable variable("XDG_CONFIG_HOME", directory.path());
  EXPECT_EQ(checkSettings().state, ok);
  directory.write("com.zephyl.tray/defaults.json", R"({"trayPort": 9000})");
  EXPECT_EQ(checkSettings().state, ok);
  directory.write("com.zephyl.tray/defaults.json", R"({"trayPort": "9000"})");
  EXPECT_NE(checkSettings().advice.find("defaults write --integer trayPort"), std::string::npos);
  directory.write("com.zephyl.tray/defaults.json", "{");
  EXPECT_EQ(checkSettings().state, wrong);
}

}  // namespace
}  // namespace zephyl
