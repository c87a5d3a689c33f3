#include "Helpers/Updates/Protocol/UpdateFiles.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {
namespace {

class UpdateFilesTest : public ::testing::Test {
 protected:
  [[nodiscard]] bool isTrusted() const { return UpdateFiles::trusted(prefix_).has_value(); }
  [[nodiscard]] std::string reason() const { return files_.reasonForDistrust().value_or(""); }

  const test::TemporaryDirectory directory_;
  const std::string prefix_ = directory_ / "opt/zephyl";
  const UpdateFiles files_ = UpdateFiles::of(prefix_);
};

TEST_F(UpdateFilesTest, AreTrustedInAPrivateDirectoryOfTheUser) {
  EXPECT_FALSE(isTrusted());
  EXPECT_EQ(reason(), "") << "a missing directory is not logged";
  ASSERT_TRUE(createDirectories(files_.directory, 0700));
  EXPECT_TRUE(isTrusted());
  EXPECT_EQ(UpdateFiles::trusted(prefix_)->trial, files_.trial);
  EXPECT_FALSE(UpdateFiles::trusted(""));
}

TEST_F(UpdateFilesTest, AreNotTrustedWhereOthersHaveAnyRight) {
  ASSERT_TRUE(createDirectories(files_.directory, 0700));
  for (const mode_t bit : {0001U, 0002U, 0004U, 0010U, 0020U, 0040U}) {
    ASSERT_EQ(::chmod(files_.directory.c_str(), 0700U | bit), 0);
    EXPECT_FALSE(isTrusted()) << bit;
    EXPECT_EQ(reason(), files_.directory + " is open to other users.") << bit;
  }
}

TEST_F(UpdateFilesTest, AreNotTrustedBehindALinkOrInAFile) {
  ASSERT_TRUE(createDirectories(directory_ / "opt", 0700));
  ASSERT_TRUE(createDirectories(directory_ / "elsewhere", 0700));
  ASSERT_EQ(::symlink((directory_ / "elsewhere").c_str(), files_.directory.c_str()), 0);
  EXPECT_FALSE(isTrusted());
  EXPECT_EQ(reason(), files_.directory + " is not a directory.");
  ASSERT_TRUE(removePath(files_.directory));
  directory_.write("opt/.zephyl.updates", "");
  EXPECT_FALSE(isTrusted());
  EXPECT_EQ(reason(), files_.directory + " is not a directory.");
}

TEST_F(UpdateFilesTest, AreNotTrustedInADirectoryOfAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give a directory to another user";
  ASSERT_TRUE(createDirectories(files_.directory, 0700));
  ASSERT_EQ(::chown(files_.directory.c_str(), 54399, 54399), 0);
  EXPECT_FALSE(isTrusted());
  EXPECT_EQ(reason(), files_.directory + " belongs to another user.");
}

TEST_F(UpdateFilesTest, RemoveANoteThatCannotBeDecoded) {
  ASSERT_TRUE(createDirectories(files_.directory, 0700));
  EXPECT_FALSE(removeUndecodableMarker(files_.trial));
  for (const auto* damaged : {"", "{", "[]", R"({"version": 2})"}) {
    directory_.write("opt/.zephyl.updates/trial.json", damaged);
    EXPECT_TRUE(removeUndecodableMarker(files_.trial)) << damaged;
    EXPECT_FALSE(fileExists(files_.trial)) << damaged;
  }
  ASSERT_TRUE(writeMarker(
      files_.trial,
      {.version = "2.0", .displayVersion = "2", .starts = 1, .endedProcess = 7, .feedDate = 8}));
  EXPECT_FALSE(removeUndecodableMarker(files_.trial));
  const auto note = readMarker(files_.trial);
  ASSERT_TRUE(note);
  EXPECT_EQ(note->starts, 1);
  EXPECT_EQ(note->endedProcess, 7);
  EXPECT_EQ(note->feedDate, 8);
}

}  // namespace
}  // namespace zephyl
