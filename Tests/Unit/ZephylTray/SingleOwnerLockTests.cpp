#include "ZephylTray/App/SingleOwnerLock.hpp"

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/Eventually.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Files.hpp"

namespace fs = std::filesystem;

namespace zephyl {
namespace {

using Taken = SingleOwnerLock::Taken;

class SingleOwnerLockTest : public ::testing::Test {
 protected:
  [[nodiscard]] auto acquire() const { return SingleOwnerLock::acquire(path_); }
  [[nodiscard]] bool isTaken() const { return std::holds_alternative<Taken>(acquire()); }
  /// Returns the recorded holder of the lock; nullopt if there is none.
  [[nodiscard]] std::optional<pid_t> knownHolder() const {
    const auto outcome = acquire();
    const auto* taken = std::get_if<Taken>(&outcome);
    return taken != nullptr ? taken->holder : std::nullopt;
  }

  test::TemporaryDirectory directory_;
  std::string path_ = directory_ / "base/tray.lock";
};

TEST_F(SingleOwnerLockTest, IsHeldUntilItsDestruction) {
  {
    const auto lock = acquire();
    ASSERT_TRUE(std::holds_alternative<SingleOwnerLock>(lock));
    EXPECT_TRUE(isTaken());
  }
  EXPECT_FALSE(isTaken());
}

TEST_F(SingleOwnerLockTest, ReportsItsHolder) {
  const auto lock = acquire();
  EXPECT_EQ(knownHolder(), ::getpid());
}

TEST_F(SingleOwnerLockTest, ReportsNoHolderIfItDidNotRecordItself) {
  const auto lock = acquire();
  for (const auto* text : {"", "x", "-5", "0", "99999999999999999999"}) {
    directory_.write("base/tray.lock", text);
    EXPECT_TRUE(isTaken()) << text;
    EXPECT_EQ(knownHolder(), std::nullopt) << text;
  }
}

TEST_F(SingleOwnerLockTest, CreatesItsFileForTheOwnerOnly) {
  const auto lock = acquire();
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(fs::status(directory_ / "base").permissions(), fs::perms::owner_all);
}

TEST_F(SingleOwnerLockTest, ForgetsAnEarlierHolder) {
  directory_.write("base/tray.lock", "1234567890123\nand more");
  const auto lock = acquire();
  ASSERT_TRUE(std::holds_alternative<SingleOwnerLock>(lock));
  EXPECT_EQ(*readFile(path_), std::to_string(::getpid()) + "\n");
}

TEST_F(SingleOwnerLockTest, IsReleasedWhenItsProcessIsKilled) {
  int ready[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  const FileDescriptor reading(ready[0]);
  FileDescriptor writing(ready[1]);
  const pid_t holder = ::fork();
  if (holder == 0) {
    const auto lock = acquire();
    if (::write(writing.get(), "x", 1) == 1) ::pause();
    ::_exit(1);
  }
  writing.reset();
  char started = 0;
  EXPECT_EQ(::read(reading.get(), &started, 1), 1);
  EXPECT_EQ(knownHolder(), holder);
  ::kill(holder, SIGKILL);
  ASSERT_EQ(::waitpid(holder, nullptr, 0), holder);
  EXPECT_FALSE(isTaken());
}

TEST_F(SingleOwnerLockTest, IsNotInheritedByAProgram) {
  pid_t program = 0;
  {
    const auto lock = acquire();
    const char* const arguments[] = {"sleep", "100", nullptr};
    ASSERT_EQ(::posix_spawnp(&program, "sleep", nullptr, nullptr,
                             const_cast<char* const*>(arguments), nullptr),
              0);
  }
  EXPECT_FALSE(isTaken());
  ::kill(program, SIGKILL);
  EXPECT_EQ(::waitpid(program, nullptr, 0), program);
}

TEST_F(SingleOwnerLockTest, IsKeptAcrossAnExec) {
  const pid_t process = ::fork();
  if (process == 0) {
    auto lock = acquire();
    std::get<SingleOwnerLock>(lock).keepAcrossExec();
    ::execlp("sleep", "sleep", "1000", nullptr);
    ::_exit(1);
  }
  const std::string name = "/proc/" + std::to_string(process) + "/comm";
  EXPECT_TRUE(test::eventually([&] { return readFile(name).value() == "sleep\n"; }));
  EXPECT_EQ(knownHolder(), process);
  ::kill(process, SIGKILL);
  ASSERT_EQ(::waitpid(process, nullptr, 0), process);
  EXPECT_FALSE(isTaken());
}

TEST_F(SingleOwnerLockTest, IsHeldByTheProgramThatInheritsIt) {
  const pid_t process = ::fork();
  if (process == 0) {
    auto first = acquire();
    std::get<SingleOwnerLock>(first).keepAcrossExec();
    const int descriptor = std::stoi(::getenv("ZEPHYL_TRAY_LOCK"));
    const auto second = acquire();
    const bool works = std::holds_alternative<SingleOwnerLock>(second) &&
                       ::getenv("ZEPHYL_TRAY_LOCK") == nullptr &&
                       ::fcntl(descriptor, F_GETFD) == FD_CLOEXEC && isTaken();
    ::_exit(works ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(process, &status, 0), process);
  EXPECT_EQ(status, 0);
}

TEST_F(SingleOwnerLockTest, TrustsNoDescriptorOfAnotherFile) {
  const auto lock = acquire();
  const FileDescriptor other(::open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const std::string& number :
       {std::to_string(other.get()), std::string("0"), std::string("-1"), std::string("9999999"),
        std::string("x"), std::string("1000000")}) {
    const test::ScopedVariable variable("ZEPHYL_TRAY_LOCK", number);
    EXPECT_TRUE(isTaken()) << number;
  }
  EXPECT_GE(::fcntl(other.get(), F_GETFD), 0) << "it was not closed";
}

TEST_F(SingleOwnerLockTest, ReportsWhyItCannotBeAcquired) {
  directory_.write("base", "");
  EXPECT_EQ(std::get<Error>(acquire()).message, directory_ / "base: Not a directory");
  fs::remove(directory_ / "base");
  fs::create_directories(path_);
  EXPECT_EQ(std::get<Error>(acquire()).message, path_ + ": Is a directory");
}

}  // namespace
}  // namespace zephyl
