#include "System/Files/PrivateDirectory.hpp"

#include <filesystem>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

class PrivateDirectoryTest : public ::testing::Test {
 protected:
  void make(mode_t mode) const {
    ASSERT_EQ(::mkdir(path_.c_str(), mode), 0);
    ASSERT_EQ(::chmod(path_.c_str(), mode), 0);
  }
  /// Returns why the directory cannot be claimed, empty if it can.
  std::string refusal() const {
    const auto claimed = claimPrivateDirectory(path_);
    return claimed ? "" : claimed.error().message;
  }

  const test::TemporaryDirectory directory_;
  const std::string path_ = directory_ / "claimed";
};

TEST_F(PrivateDirectoryTest, IsCreatedForThisUserOnly) {
  EXPECT_EQ(refusal(), "");
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
  EXPECT_EQ(refusal(), "") << "the second call";
  EXPECT_TRUE(isOwnDirectory(path_));
}

TEST_F(PrivateDirectoryTest, IsRefusedWhenOthersCanEnterIt) {
  make(0755);
  EXPECT_EQ(refusal(), path_ + " can be entered by other users; it needs mode 0700");
  EXPECT_TRUE(isOwnDirectory(path_));
}

TEST_F(PrivateDirectoryTest, IsRefusedWhenItBelongsToAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give a directory to another user";
  make(0700);
  ASSERT_EQ(::chown(path_.c_str(), 54321, 54321), 0);
  EXPECT_EQ(refusal(), path_ + " belongs to another user (user id 54321)");
  EXPECT_FALSE(isOwnDirectory(path_));
}

TEST_F(PrivateDirectoryTest, IsRefusedWhenItIsALinkOrAFile) {
  std::filesystem::create_directory_symlink(directory_.path(), path_);
  EXPECT_EQ(refusal(), path_ + ": Not a directory");
  EXPECT_FALSE(isOwnDirectory(path_));
  std::filesystem::remove(path_);
  directory_.write("claimed", "");
  EXPECT_EQ(refusal(), path_ + ": Not a directory");
  EXPECT_FALSE(isOwnDirectory(path_));
}

TEST_F(PrivateDirectoryTest, IsRefusedIfItCannotBeCreated) {
  EXPECT_FALSE(claimPrivateDirectory(directory_ / "missing/claimed"));
  EXPECT_FALSE(isOwnDirectory(directory_ / "missing/claimed"));
}

}  // namespace
}  // namespace zephyl
