#include "System/Files/Files.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/FileSizeLimit.hpp"
#include "Support/HomelessUser.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NoMoreDescriptors.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace fs = std::filesystem;

namespace zephyl {
namespace {

using test::TemporaryDirectory;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

std::string reasonOf(const std::string& path, int number) {
  return path + ": " + std::strerror(number);
}

void saveTo(const std::string& path, std::string_view bytes) {
  const auto saved = writeFileAtomically(path, bytes, Durability::unflushed);
  ASSERT_TRUE(saved) << saved.error().message;
}

TEST(Files, JoinsPathsWithExactlyOneSeparator) {
  EXPECT_EQ(joinPath("/a", "b"), "/a/b");
  EXPECT_EQ(joinPath("/a//", "//b/c"), "/a/b/c");
  EXPECT_EQ(joinPath("/", "b"), "/b");
  EXPECT_EQ(joinPath("", "b"), "b");
  EXPECT_EQ(joinPath("/a", ""), "/a");
}

TEST(Files, KnowTheirParentDirectory) {
  EXPECT_EQ(parentDirectory("/a/b"), "/a");
  EXPECT_EQ(parentDirectory("/a"), "/");
  EXPECT_EQ(parentDirectory("/"), "/");
  EXPECT_EQ(parentDirectory("a"), ".");
}

TEST(Files, AreDistinguishedFromDirectories) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "");
  EXPECT_TRUE(fileExists(file));
  EXPECT_TRUE(fileExists(directory.path()));
  EXPECT_FALSE(fileExists(directory / "none"));
  EXPECT_FALSE(isDirectory(file));
  EXPECT_TRUE(isDirectory(directory.path()));
}

TEST(Files, AreExecutableOnlyIfRegularAndPermitted) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(isExecutableFile(directory.write("program", "", true)));
  EXPECT_FALSE(isExecutableFile(directory.write("text", "")));
  EXPECT_FALSE(isExecutableFile(directory.path()));
  EXPECT_FALSE(isExecutableFile(directory / "none"));
}

TEST(Files, AreReadCompletely) {
  const TemporaryDirectory directory;
  std::string contents("a\0b", 3);
  contents.append(1'000'000, 'x');
  EXPECT_EQ(*readFile(directory.write("file", contents)), contents);
  EXPECT_EQ(*readFile(directory.write("empty", "")), "");
}

TEST(Files, AreReadCompletelyIfTheirSizeIsUnknown) {
  const auto contents = readFile("/proc/self/status");
  ASSERT_TRUE(contents) << contents.error().message;
  EXPECT_TRUE(contents->starts_with("Name:"));
  EXPECT_TRUE(contents->ends_with('\n'));
}

TEST(Files, ReportWhyTheyCannotBeRead) {
  const TemporaryDirectory directory;
  const std::string none = directory / "none";
  EXPECT_EQ(readFile(none).error().message, reasonOf(none, ENOENT));
  EXPECT_EQ(readFile(directory.path()).error().message, reasonOf(directory.path(), EISDIR));

  const std::string pipe = directory / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(readFile(pipe).error().message, pipe + ": not a regular file");

  const std::string large = directory.write("large", "");
  fs::resize_file(large, maxReadableFile + 1);
  EXPECT_EQ(readFile(large).error().message, reasonOf(large, EFBIG));
}

TEST(Files, DistinguishAShortageFromOtherErrors) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "text");
  Error failure;
  {
    const test::NoMoreDescriptors limit;
    failure = readFile(file).error();
  }
  EXPECT_EQ(failure.message, reasonOf(file, EMFILE));
  EXPECT_TRUE(failure.isShortage);
  EXPECT_FALSE(readFile(directory / "none").error().isShortage);
  EXPECT_TRUE(systemError("", ENFILE).isShortage);
  EXPECT_TRUE(systemError("", ENOMEM).isShortage);
  EXPECT_FALSE(systemError("", EIO).isShortage);
}

TEST(Files, CreateMissingDirectories) {
  const TemporaryDirectory directory;
  const mode_t oldMask = ::umask(0277);
  const auto created = createDirectories(directory / "a/b/c");
  ::umask(oldMask);
  ASSERT_TRUE(created) << created.error().message;
  for (const auto* name : {"a", "a/b", "a/b/c"}) EXPECT_EQ(modeOf(directory / name), 0700) << name;
}

TEST(Files, KeepExistingDirectories) {
  const TemporaryDirectory directory;
  ASSERT_EQ(::mkdir((directory / "a").c_str(), 0755), 0);
  EXPECT_TRUE(createDirectories(directory / "a/b", 0750));
  EXPECT_TRUE(createDirectories(directory / "a/b", 0700));
  EXPECT_EQ(modeOf(directory / "a"), 0755);
  EXPECT_EQ(modeOf(directory / "a/b"), 0750);
}

TEST(Files, CannotReplaceADirectory) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "kept");
  EXPECT_EQ(createDirectories(file).error().message, reasonOf(file, ENOTDIR));
  EXPECT_EQ(createDirectories(file + "/a/b").error().message, reasonOf(file, ENOTDIR));
  EXPECT_EQ(*readFile(file), "kept");
}

TEST(AtomicWrite, CreatesAndReplacesAFileReadableByItsOwnerOnly) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "old and longer");
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  for (const auto durability : {Durability::unflushed, Durability::flushed}) {
    ASSERT_TRUE(writeFileAtomically(file, "new", durability));
    ASSERT_TRUE(writeFileAtomically(directory / "another", "x", durability));
  }
  EXPECT_EQ(*readFile(file), "new");
  EXPECT_EQ(modeOf(file), 0600);
  EXPECT_EQ(namesIn(directory.path()), (std::vector<std::string>{"another", "file"}));
}

TEST(AtomicWrite, ReplacesTheTargetOfALinkAndKeepsTheLink) {
  const TemporaryDirectory directory;
  directory.write("elsewhere/real", "old");
  fs::create_symlink("elsewhere/step", directory / "link");
  fs::create_symlink("real", directory / "elsewhere/step");
  saveTo(directory / "link", "new");
  EXPECT_EQ(*readFile(directory / "elsewhere/real"), "new");
  EXPECT_EQ(fs::read_symlink(directory / "link"), "elsewhere/step");
  EXPECT_EQ(namesIn(directory / "elsewhere"), (std::vector<std::string>{"real", "step"}));
}

TEST(AtomicWrite, CreatesTheMissingTargetOfALink) {
  const TemporaryDirectory directory;
  fs::create_symlink(directory / "real", directory / "link");
  saveTo(directory / "link", "new");
  EXPECT_EQ(*readFile(directory / "real"), "new");
  EXPECT_TRUE(fs::is_symlink(directory / "link"));
}

TEST(AtomicWrite, RefusesCircularLinks) {
  const TemporaryDirectory directory;
  fs::create_symlink("b", directory / "a");
  fs::create_symlink("a", directory / "b");
  EXPECT_FALSE(writeFileAtomically(directory / "a", "new", Durability::unflushed));
  EXPECT_EQ(namesIn(directory.path()), (std::vector<std::string>{"a", "b"}));
}

TEST(AtomicWrite, FailsOnADirectoryAndLeavesNothingBehind) {
  const TemporaryDirectory directory;
  const std::string target = directory / "target";
  fs::create_directory(target);
  EXPECT_EQ(writeFileAtomically(target, "new", Durability::unflushed).error().message,
            reasonOf(target, EISDIR));
  EXPECT_EQ(namesIn(directory.path()), std::vector<std::string>{"target"});
}

TEST(AtomicWrite, FailsWhereThereIsNoDirectory) {
  const TemporaryDirectory directory;
  const std::string target = directory / "none/file";
  EXPECT_EQ(writeFileAtomically(target, "new", Durability::flushed).error().message,
            reasonOf(target, ENOENT));
}

TEST(AtomicWrite, KeepsTheOldFileWhenTheNewOneDoesNotFitOnTheDisk) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "old");
  Result<void> written;
  {
    const test::FileSizeLimit limit(4096);
    written = writeFileAtomically(file, std::string(10'000, 'x'), Durability::flushed);
  }
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().message, reasonOf(file, EFBIG));
  EXPECT_EQ(*readFile(file), "old");
  EXPECT_EQ(namesIn(directory.path()), std::vector<std::string>{"file"});
}

/// Returns a text of equal characters whose length depends on the character, so that a test can
/// check whether it is complete.
std::string wholeText(int number) {
  const auto size = static_cast<std::size_t>(1000 * (1 + number % 100));
  return std::string(size, static_cast<char>('a' + number % 26));
}

/// Writes texts until it is killed. Reports when the first one is written.
[[noreturn]] void writeForever(const std::string& path, int firstNumber, int reportTo) {
  for (int number = firstNumber;; ++number) {
    const auto durability = number % 4 == 0 ? Durability::flushed : Durability::unflushed;
    if (!writeFileAtomically(path, wholeText(number), durability)) ::_exit(1);
    if (number == firstNumber && ::write(reportTo, "x", 1) != 1) ::_exit(1);
  }
}

int killRounds() {
  const char* rounds = std::getenv("ZEPHYL_KILL_ROUNDS");
  return rounds != nullptr ? std::atoi(rounds) : 200;
}

/// Runs a writer and kills it `delay` after it has written its first text.
void killAWriter(const std::string& path, int firstNumber, std::chrono::microseconds delay) {
  std::array<int, 2> report{};
  ASSERT_EQ(::pipe2(report.data(), O_CLOEXEC), 0);
  const FileDescriptor reading(report[0]);
  FileDescriptor writing(report[1]);
  const pid_t writer = ::fork();
  if (writer == 0) writeForever(path, firstNumber, writing.get());
  ASSERT_GT(writer, 0);
  writing.reset();
  char started = 0;
  EXPECT_EQ(::read(reading.get(), &started, 1), 1);
  std::this_thread::sleep_for(delay);
  ::kill(writer, SIGKILL);
  int status = 0;
  ASSERT_EQ(::waitpid(writer, &status, 0), writer);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the writer failed";
}

TEST(AtomicWrite, LeavesTheOldOrTheNewFileWholeWhenItsProcessIsKilled) {
  const TemporaryDirectory directory;
  const std::string file = directory / "file";
  std::minstd_rand random(1);
  for (int round = 0; round < killRounds(); ++round) {
    ASSERT_NO_FATAL_FAILURE(killAWriter(file, round, std::chrono::microseconds(random() % 3000)));
    const std::string contents = *readFile(file);
    ASSERT_FALSE(contents.empty());
    ASSERT_EQ(contents.size() % 1000, 0U);
    ASSERT_EQ(contents, std::string(contents.size(), contents.front()));
  }
}

TEST(CopyAside, KeepsTheContentsUnderANameWithTheTime) {
  const TemporaryDirectory directory;
  const std::string contents(200'000, 'x');
  const std::string file = directory.write("file", contents);
  ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
  const auto copy = copyAside(file);
  ASSERT_TRUE(copy) << copy.error().message;
  EXPECT_TRUE(copy->starts_with(file + ".unreadable-20")) << *copy;
  EXPECT_EQ(copy->size(), file.size() + std::strlen(".unreadable-yyyyMMdd-HHmmss"));
  EXPECT_EQ(*readFile(*copy), contents);
  EXPECT_EQ(modeOf(*copy), 0600);
  EXPECT_EQ(*readFile(file), contents);
}

TEST(CopyAside, NeverReplacesAnEarlierCopy) {
  const TemporaryDirectory directory;
  const std::string file = directory / "file";
  std::vector<std::string> copies;
  for (const auto* contents : {"1", "2", "3"}) {
    saveTo(file, contents);
    copies.push_back(*copyAside(file));
  }
  EXPECT_EQ(*readFile(copies[0]), "1");
  EXPECT_EQ(*readFile(copies[1]), "2");
  EXPECT_EQ(*readFile(copies[2]), "3");
}

TEST(CopyAside, LinksAFileWhoseCopyDoesNotFitOnTheDisk) {
  const TemporaryDirectory directory;
  const std::string contents(10'000, 'x');
  const std::string file = directory.write("file", contents);
  Result<std::string> copy = Error{};
  {
    const test::FileSizeLimit limit(4096);
    copy = copyAside(file);
  }
  ASSERT_TRUE(copy) << copy.error().message;
  saveTo(file, "new");
  EXPECT_EQ(*readFile(*copy), contents);
  EXPECT_EQ(namesIn(directory.path()).size(), 2U);
}

TEST(CopyAside, LeavesNothingBehindInAShortage) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "text");
  {
    const test::NoMoreDescriptors limit;
    EXPECT_FALSE(copyAside(file));
  }
  EXPECT_EQ(namesIn(directory.path()).size(), 1U);
}

TEST(CopyAside, ReportsWhyItFailed) {
  const TemporaryDirectory directory;
  const std::string none = directory / "none";
  EXPECT_EQ(copyAside(none).error().message, reasonOf(none, ENOENT));
  EXPECT_EQ(copyAside(directory.path()).error().message, reasonOf(directory.path(), EISDIR));
}

/// Creates a directory with a file, an empty directory, a link and a socket.
void fill(const TemporaryDirectory& directory, const std::string& name) {
  directory.write(name + "/deep/state", "s3cret");
  fs::create_directory(directory / (name + "/empty"));
  fs::permissions(directory / (name + "/deep"), fs::perms::owner_all);
  fs::create_symlink("deep/state", directory / (name + "/link"));
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const std::string path = directory / (name + "/socket");
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

TEST(MovePath, MovesADirectoryWithItsContents) {
  const TemporaryDirectory directory;
  fill(directory, "from");
  const auto moved = movePath(directory / "from", directory / "to");
  ASSERT_TRUE(moved) << moved.error().message;
  EXPECT_EQ(*readFile(directory / "to/link"), "s3cret");
  EXPECT_FALSE(fileExists(directory / "from"));
}

TEST(MovePath, MovesAcrossFileSystems) {
  struct stat here {
  }, there{};
  const TemporaryDirectory directory;
  if (::stat("/dev/shm", &there) != 0 || ::stat(directory.path().c_str(), &here) != 0 ||
      here.st_dev == there.st_dev) {
    GTEST_SKIP() << "there is no second file system";
  }
  std::string shared = "/dev/shm/zephyl-test-XXXXXX";
  ASSERT_NE(::mkdtemp(shared.data()), nullptr);
  fill(directory, "from");
  const auto moved = movePath(directory / "from", shared + "/to");
  EXPECT_TRUE(moved) << moved.error().message;
  EXPECT_EQ(*readFile(shared + "/to/link"), "s3cret");
  EXPECT_EQ(modeOf(shared + "/to/deep"), 0700);
  EXPECT_EQ(namesIn(shared + "/to"), (std::vector<std::string>{"deep", "empty", "link"}));
  EXPECT_EQ(namesIn(shared), std::vector<std::string>{"to"});
  EXPECT_FALSE(fileExists(directory / "from"));
  fs::remove_all(shared);
}

/// Returns whether a file is saved, with one log line, in a directory that cannot be opened for
/// flushing.
bool isSavedWhereTheDirectoryCannotBeFlushed(const std::string& directory) {
  constexpr mode_t writableOnly = 0300;
  if (::chmod(directory.c_str(), writableOnly) != 0) return false;
  bool saved = false;
  const auto log = test::logOf([&] {
    saved = writeFileAtomically(directory + "/file", "new", Durability::flushed).has_value();
  });
  return saved && *readFile(directory + "/file") == "new" &&
         log == "[tray] could not flush the directory of " + directory +
                    "/file: " + reasonOf(directory, EACCES) + "\n";
}

TEST(WriteFileAtomically, SucceedsOnceTheFileHasItsName) {
  const TemporaryDirectory directory;
  const auto holds = [&] { return isSavedWhereTheDirectoryCannotBeFlushed(directory.path()); };
  if (::geteuid() != 0) {
    EXPECT_TRUE(holds());
  } else {
    // Root may open every directory.
    ASSERT_EQ(::chown(directory.path().c_str(), 54321, 54321), 0);
    const auto held = test::holdsWithoutHome(holds);
    if (!held) GTEST_SKIP() << "user id 54321 is in use";
    EXPECT_TRUE(*held);
  }
  ::chmod(directory.path().c_str(), 0700);
}

TEST(MovePath, RefusesATargetThatExistsAndASourceThatDoesNot) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "old");
  EXPECT_EQ(movePath(directory.write("from", "new"), file).error().message, reasonOf(file, EEXIST));
  EXPECT_EQ(*readFile(file), "old");
  const std::string none = directory / "none";
  EXPECT_EQ(movePath(none, directory / "to").error().message, reasonOf(none, ENOENT));
}

TEST(IsSameFile, ComparesFilesAndNotTheirNames) {
  const TemporaryDirectory directory;
  const std::string one = directory.write("one", "text");
  const std::string other = directory.write("other", "text");
  fs::create_symlink(one, directory / "link");
  EXPECT_TRUE(isSameFile(one, one));
  EXPECT_TRUE(isSameFile(one, directory / "link"));
  EXPECT_FALSE(isSameFile(one, other));
  EXPECT_FALSE(isSameFile(one, directory / "none"));
  EXPECT_FALSE(isSameFile(directory / "none", directory / "none"));
}

TEST(RemovePath, DeletesADirectoryButNotTheTargetsOfItsLinks) {
  const TemporaryDirectory directory;
  fill(directory, "doomed");
  const std::string outside = directory.write("outside/file", "kept");
  fs::create_directory_symlink(directory / "outside", directory / "doomed/way-out");
  const auto removed = removePath(directory / "doomed");
  ASSERT_TRUE(removed) << removed.error().message;
  EXPECT_FALSE(fileExists(directory / "doomed"));
  EXPECT_EQ(*readFile(outside), "kept");
}

TEST(RemovePath, SucceedsIfThePathDoesNotExist) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(removePath(directory / "none"));
  const std::string file = directory.write("file", "");
  EXPECT_FALSE(removePath(file + "/below"));
}

}  // namespace
}  // namespace zephyl
