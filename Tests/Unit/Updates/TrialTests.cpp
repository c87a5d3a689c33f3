#include "Helpers/Updates/Program/Trial.hpp"

#include <csignal>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class TrialTest : public ::testing::Test {
 protected:
  TrialTest() {
    if (!createDirectories(files_.directory)) ADD_FAILURE();
  }
  ~TrialTest() override {
    if (process_ != 0) end();
  }
  TrialTest(const TrialTest&) = delete;
  TrialTest& operator=(const TrialTest&) = delete;

  /// Starts a process that runs until it is killed.
  pid_t start() {
    process_ = ::fork();
    if (process_ == 0) {
      ::pause();
      ::_exit(0);
    }
    return process_;
  }
  void end() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = 0;
  }
  void put(std::optional<std::int64_t> endedProcess) {
    ASSERT_TRUE(writeMarker(
        files_.trial, {.version = "2.0", .displayVersion = "2.0", .endedProcess = endedProcess}));
  }
  [[nodiscard]] TrialOutcome outcome(const WatchedProcess& process,
                                     std::chrono::seconds limit = 10s) const {
    return outcomeOfTrial(prefix_, process, limit);
  }

  const test::TemporaryDirectory directory_;
  const std::string prefix_ = directory_ / "opt/zephyl";
  const UpdateFiles files_ = UpdateFiles::of(prefix_);
  pid_t process_ = 0;
};

TEST_F(TrialTest, IsConfirmedWhenTheNoteIsRemoved) {
  const WatchedProcess process(start());
  EXPECT_EQ(outcome(process), TrialOutcome::confirmed);
}

TEST_F(TrialTest, FailsWhenTheProcessEndsOrTheTimeIsUp) {
  put(std::nullopt);
  const WatchedProcess process(start());
  EXPECT_EQ(outcome(process, 0s), TrialOutcome::failed);
  end();
  EXPECT_EQ(outcome(process), TrialOutcome::failed);
}

TEST_F(TrialTest, ContinuesLaterIfThisProcessWasAskedToEnd) {
  const WatchedProcess process(start());
  put(process.id() + 1);
  EXPECT_EQ(outcome(process, 0s), TrialOutcome::failed)
      << "the end of another process was requested";
  put(process.id());
  EXPECT_EQ(outcome(process, 0s), TrialOutcome::suspended) << "it is still ending";
  end();
  EXPECT_EQ(outcome(process), TrialOutcome::suspended);
}

}  // namespace
}  // namespace zephyl
