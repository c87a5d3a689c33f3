#include "Helpers/Updates/Program/ArchiveCache.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {
namespace {

class ArchiveCacheTest : public ::testing::Test {
 protected:
  ArchiveCacheTest() {
    if (!createDirectories(files_.directory)) ADD_FAILURE();
  }

  [[nodiscard]] FileDescriptor nameless(const std::string& bytes = "") const {
    FileDescriptor file(::open(files_.directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    EXPECT_EQ(::write(file.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    return file;
  }
  void keep(const std::string& bytes, const std::string& hash) const {
    kept_.keep(nameless(bytes), hash);
  }
  /// Returns the copy of the archive with this hash; "none" if there is none.
  [[nodiscard]] std::string copyOf(const std::string& hash, std::int64_t length) const {
    const auto file = nameless();
    if (!kept_.copyTo(file, hash, length)) return "none";
    std::string bytes(static_cast<std::size_t>(length) + 1, '\0');
    bytes.resize(static_cast<std::size_t>(::pread(file.get(), bytes.data(), bytes.size(), 0)));
    return bytes;
  }
  static void age(const std::string& path, std::chrono::hours by) {
    const auto then = std::chrono::system_clock::now() - by;
    timespec times[2] = {};
    times[0].tv_sec = times[1].tv_sec = std::chrono::system_clock::to_time_t(then);
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }

  const test::TemporaryDirectory directory_;
  const UpdateFiles files_ = UpdateFiles::of(directory_ / "opt/zephyl");
  const ArchiveCache kept_{files_};
};

TEST_F(ArchiveCacheTest, KeepOnlyTheNewestArchive) {
  EXPECT_EQ(copyOf("aa", 5), "none");
  keep("bytes", "aa");
  EXPECT_EQ(copyOf("aa", 5), "bytes");
  struct stat status {};
  ASSERT_EQ(::stat(files_.archive("aa").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  keep("other", "bb");
  EXPECT_EQ(copyOf("aa", 5), "none");
  EXPECT_EQ(copyOf("bb", 5), "other");
  kept_.removeAll();
  EXPECT_EQ(copyOf("bb", 5), "none");
}

TEST_F(ArchiveCacheTest, UseOnlyFilesOfTheExpectedLength) {
  keep("bytes", "aa");
  EXPECT_EQ(copyOf("aa", 4), "none");
  EXPECT_EQ(copyOf("aa", 6), "none");
  ASSERT_EQ(::symlink(files_.archive("aa").c_str(), files_.archive("bb").c_str()), 0);
  EXPECT_EQ(copyOf("bb", 5), "none");
  ASSERT_EQ(::mkfifo(files_.archive("cc").c_str(), 0600), 0);
  EXPECT_EQ(copyOf("cc", 5), "none");
}

TEST_F(ArchiveCacheTest, AreRemovedWithTheStagedVersionWhenAnotherVersionIsOffered) {
  keep("bytes", "aa");
  ASSERT_TRUE(createDirectories(files_.staged));
  EXPECT_FALSE(kept_.hasUnwanted("aa"));
  EXPECT_FALSE(kept_.hasUnwanted("")) << "a check without an offer keeps the earlier one";
  kept_.removeUnwanted("aa");
  EXPECT_TRUE(fileExists(files_.staged));
  EXPECT_TRUE(kept_.hasUnwanted("bb"));
  kept_.removeUnwanted("bb");
  EXPECT_EQ(copyOf("aa", 5), "none");
  EXPECT_FALSE(fileExists(files_.staged));
}

TEST_F(ArchiveCacheTest, AreRemovedAfterFourWeeks) {
  using namespace std::chrono_literals;
  keep("bytes", "aa");
  age(files_.archive("aa"), 27 * 24h);
  EXPECT_FALSE(kept_.hasUnwanted("aa"));
  age(files_.archive("aa"), 28 * 24h + 1h);
  EXPECT_TRUE(kept_.hasUnwanted("aa"));
  EXPECT_TRUE(kept_.hasUnwanted(""));
  kept_.removeUnwanted("aa");
  EXPECT_EQ(copyOf("aa", 5), "none");
}

TEST_F(ArchiveCacheTest, RemoveTheStagedVersionAfterFourWeeks) {
  using namespace std::chrono_literals;
  ASSERT_TRUE(createDirectories(files_.staged));
  EXPECT_FALSE(kept_.hasUnwanted(""));
  age(files_.staged, 28 * 24h + 1h);
  EXPECT_TRUE(kept_.hasUnwanted(""));
  kept_.removeUnwanted("");
  EXPECT_FALSE(fileExists(files_.staged));
}

}  // namespace
}  // namespace zephyl
