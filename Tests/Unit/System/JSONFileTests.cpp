#include "System/Files/JSONFile.hpp"

#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include "Support/TemporaryDirectory.hpp"
#include "System/Data/JSON.hpp"

namespace zephyl {
namespace {

class JSONFileTest : public ::testing::Test {
 protected:
  void write(const std::string& text) { directory_.write("values.json", text); }
  std::string path() { return directory_ / "values.json"; }
  Result<JSONFile::Contents> read() { return file_.read(path()); }
  std::int64_t value() {
    const auto contents = read();
    return contents ? (*contents)->at("a").as_int64() : -1;
  }
  /// Reads until two reads return the same object. Returns null if none do within 10 s.
  JSONFile::Contents readUntilKept() {
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + seconds(10);
    while (steady_clock::now() < deadline) {
      const auto first = read(), second = read();
      if (first && second && *first == *second) return *first;
      std::this_thread::sleep_for(milliseconds(5));
    }
    return nullptr;
  }

  test::TemporaryDirectory directory_;
  JSONFile file_;
};

TEST_F(JSONFileTest, KeepsTheContentsOfAnUnchangedFile) {
  write(R"({"a": 1})");
  const auto kept = readUntilKept();
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->at("a"), 1);
  EXPECT_EQ(*read(), kept);
}

TEST_F(JSONFileTest, NoticesAChangeInPlaceOfTheSameSize) {
  write(R"({"a": 1})");
  ASSERT_TRUE(readUntilKept());
  write(R"({"a": 2})");
  EXPECT_EQ(value(), 2);
}

TEST_F(JSONFileTest, NoticesChangesThatFollowEachOtherAtOnce) {
  for (int turn = 0; turn < 200; ++turn) {
    write(R"({"a": )" + std::to_string(turn % 10) + "}");
    EXPECT_EQ(value(), turn % 10);
  }
}

TEST_F(JSONFileTest, NoticesAFileOfTheSameTimesInItsPlace) {
  write(R"({"a": 1})");
  ASSERT_TRUE(readUntilKept());
  directory_.write("other.json", R"({"a": 2})");
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  const timespec times[] = {status.st_atim, status.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, (directory_ / "other.json").c_str(), times, 0), 0);
  std::filesystem::rename(directory_ / "other.json", path());
  EXPECT_EQ(value(), 2);
}

TEST_F(JSONFileTest, KeepsNoErrorAndNothingOfAFileThatIsGone) {
  EXPECT_FALSE(read());
  write(R"({"a": 1})");
  ASSERT_TRUE(readUntilKept());
  std::filesystem::remove(path());
  EXPECT_FALSE(read());
  write("[1]");
  EXPECT_FALSE(read());
  write(R"({"a": 3})");
  EXPECT_EQ(value(), 3);
}

TEST_F(JSONFileTest, ReadsAnotherPathAfresh) {
  write(R"({"a": 1})");
  ASSERT_TRUE(readUntilKept());
  directory_.write("other.json", R"({"a": 2})");
  const auto other = file_.read(directory_ / "other.json");
  ASSERT_TRUE(other);
  EXPECT_EQ((*other)->at("a"), 2);
  EXPECT_EQ(value(), 1);
}

}  // namespace
}  // namespace zephyl
