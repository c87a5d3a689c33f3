#include "Helpers/Updates/Archive/Extraction.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include "Helpers/Updates/Archive/FreeSpace.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Files.hpp"
#include "Unit/Updates/TestArchive.hpp"

namespace zephyl {
namespace {

using test::TestArchive;

class ExtractionTest : public ::testing::Test {
 protected:
  [[nodiscard]] Result<void> extract(const std::string& tar) const {
    MemorySource source(tar);
    ArchiveReader reader(source);
    const FileDescriptor into(
        ::open((directory_ / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return unpack(reader, into, maxDirectories);
  }

  static constexpr std::size_t maxDirectories = 300;
  const test::TemporaryDirectory directory_;
};

TEST_F(ExtractionTest, CountsTheDirectoriesThatEntriesImply) {
  // Each entry implies sixty directories: the entries alone stay far below the limit.
  constexpr std::size_t depth = 60;
  const auto deep = [](std::size_t number) {
    std::string path = "share/zephyl-tray/" + std::to_string(number);
    for (std::size_t i = 0; i < depth; ++i) path += "/d";
    return path;
  };
  TestArchive archive;
  for (std::size_t i = 0; i <= maxDirectories / depth; ++i) {
    const std::string path = deep(i);
    archive.addSplit(path.substr(0, path.size() - 2), "d");
  }
  const auto extracted = extract(archive.tar());
  ASSERT_TRUE(extracted.has_error());
  EXPECT_EQ(extracted.error().message, "The archive contains too many directories.");
}

TEST_F(ExtractionTest, CreatesADirectoryOnce) {
  TestArchive archive;
  for (int i = 0; i < 100; ++i) {
    archive.add("share/zephyl-tray/a/b/c/zephyl-tray-" + std::to_string(i), "x");
  }
  EXPECT_TRUE(extract(archive.tar()));
  EXPECT_TRUE(fileExists(directory_ / "share/zephyl-tray/a/b/c/zephyl-tray-99"));
}

TEST_F(ExtractionTest, OnlyTheOwnerMayWriteWhateverTheArchiveAndTheUmaskSay) {
  const auto before = ::umask(0077);
  const auto extracted = extract(TestArchive()
                                     .add("bin/zephyl-tray", "x", '0', "", "0000777")
                                     .add("share/zephyl-tray/text", "x", '0', "", "0000666")
                                     .tar());
  ::umask(before);
  ASSERT_TRUE(extracted) << extracted.error().message;
  const auto modeOf = [this](const std::string& name) {
    struct stat status {};
    EXPECT_EQ(::stat((directory_ / name).c_str(), &status), 0) << name;
    return status.st_mode & 07777U;
  };
  EXPECT_EQ(modeOf("share/zephyl-tray"), 0755U);
  EXPECT_EQ(modeOf("bin/zephyl-tray"), 0755U);
  EXPECT_EQ(modeOf("share/zephyl-tray/text"), 0644U);
}

TEST(FreeSpace, KeepsAReserveForOtherPrograms) {
  EXPECT_TRUE(checkSpace(0, reservedSpace));
  EXPECT_TRUE(checkSpace(1'000'000, reservedSpace + 1'000'000));
  const auto refused = checkSpace(1'000'001, reservedSpace + 1'000'000);
  ASSERT_TRUE(refused.has_error());
  EXPECT_EQ(refused.error().message,
            "There is not enough free space on the disk of the installation: 69 MB are needed, "
            "68 MB are free.");
  EXPECT_TRUE(checkSpace(std::int64_t{1} << 62, 0).has_error());
}

TEST_F(ExtractionTest, ChecksTheFreeSpaceOfTheRightDisk) {
  const FileDescriptor here(::open((directory_ / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_TRUE(checkFreeSpace(here, std::int64_t{1} << 61).has_error());
  EXPECT_TRUE(checkFreeSpace(FileDescriptor(), 0).has_error());
}

}  // namespace
}  // namespace zephyl
