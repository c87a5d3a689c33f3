#include "Helpers/Updates/Client/TrialStart.hpp"

#include <filesystem>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "Support/Eventually.hpp"
#include "Support/LogCapture.hpp"
#include "Support/Processes.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {
namespace {

class TrialStartTest : public ::testing::Test {
 protected:
  TrialStartTest() { install("opt/zephyl", "2.0"); }

  void install(const std::string& place, const std::string& version) {
    directory_.write(place + "/bin/zephyl-tray", "", true);
    directory_.write(place + "/share/zephyl-tray/Info.json",
                     R"({"CFBundleShortVersionString": ")" + version + "\"}");
  }
  /// Writes an updater program that records its command and its path.
  void installUpdater(const std::string& place, const std::string& work) {
    directory_.write(place + "/libexec/zephyl-tray/zephyl-tray-updater",
                     "#!/bin/sh\necho \"" + place + " $(cat)\" >> '" + (directory_ / "told") +
                         "'\n" + work + "\n",
                     true);
  }
  void putOnTrial(const std::string& version, std::int64_t starts) {
    ASSERT_TRUE(createDirectories(files_.directory, 0700));
    ASSERT_TRUE(writeMarker(files_.trial,
                            {.version = version, .displayVersion = version, .starts = starts}));
  }
  [[nodiscard]] std::int64_t starts() const { return readMarker(files_.trial).value().starts; }
  [[nodiscard]] std::string told() const {
    const auto text = readFile(directory_ / "told");
    return text ? *text : "";
  }
  /// Returns shell commands that roll back, for an updater program.
  [[nodiscard]] std::string rollBack() const {
    return "sed -i s/2.0/1.0/ '" + prefix_ + "/share/zephyl-tray/Info.json'";
  }
  [[nodiscard]] bool returns() const { return rollBackIfUnconfirmed(bundle_); }

  const test::TemporaryDirectory directory_;
  const std::string prefix_ = directory_ / "opt/zephyl";
  const UpdateFiles files_ = UpdateFiles::of(prefix_);
  const Bundle bundle_{prefix_ + "/bin/zephyl-tray"};
  const std::string command_ = R"({"takeBack":{"prefix":")" + prefix_ + "\"}}\n";
};

TEST_F(TrialStartTest, CountsTheStartsOfAVersionOnTrialAndNoOther) {
  EXPECT_FALSE(returns());
  EXPECT_FALSE(fileExists(files_.directory));
  putOnTrial("2.0", 0);
  for (int start = 1; start <= maxTrialStarts; ++start) {
    EXPECT_FALSE(returns());
    EXPECT_EQ(starts(), start);
  }
  EXPECT_FALSE(rollBackIfUnconfirmed(Bundle(directory_ / "build/zephyl-tray")));
  EXPECT_FALSE(rollBackIfUnconfirmed(Bundle(std::nullopt)));
}

TEST_F(TrialStartTest, RemovesANoteOfAVersionThatIsNotInstalledUnlessAnUpdaterIsAtWork) {
  putOnTrial("3.0", 7);
  installUpdater("opt/.zephyl.updates/previous", rollBack());
  {
    const FileDescriptor lock(::open(files_.lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    EXPECT_FALSE(returns());
    EXPECT_EQ(starts(), 7) << "version 3.0 may still be installed";
  }
  EXPECT_FALSE(returns());
  EXPECT_FALSE(fileExists(files_.trial));
  EXPECT_EQ(told(), "");
}

TEST_F(TrialStartTest, KnowsWhetherAnUpdateIsUnconfirmed) {
  EXPECT_FALSE(isUpdateUnconfirmed(bundle_));
  putOnTrial("3.0", 0);
  EXPECT_TRUE(isUpdateUnconfirmed(bundle_));
  ASSERT_TRUE(removePath(files_.trial));
  EXPECT_FALSE(isUpdateUnconfirmed(bundle_));
}

TEST_F(TrialStartTest, ComparesVersionsAsUpdatesDo) {
  directory_.write("opt/zephyl/share/zephyl-tray/Info.json",
                   R"({"CFBundleShortVersionString": "2.0", "CFBundleVersion": "200"})");
  putOnTrial("200", 0);
  EXPECT_FALSE(returns());
  EXPECT_EQ(starts(), 1);
}

TEST_F(TrialStartTest, RollsBackAVersionThatNeverConfirmedWithThePreviousUpdater) {
  putOnTrial("2.0", maxTrialStarts);
  installUpdater("opt/zephyl", rollBack());
  installUpdater("opt/.zephyl.updates/staged", rollBack());
  installUpdater("opt/.zephyl.updates/previous", rollBack());
  bool returned = false;
  const auto log = test::logOf([&] { returned = returns(); });
  EXPECT_TRUE(returned);
  EXPECT_EQ(told(), "opt/.zephyl.updates/previous " + command_);
  EXPECT_EQ(log,
            "[tray] version 2.0 failed to start 3 times; rolling back to the previous version\n");
}

TEST_F(TrialStartTest, TriesOtherUpdatersAndStartsEvenIfAllFail) {
  putOnTrial("2.0", maxTrialStarts);
  installUpdater("opt/zephyl", "exit 1");
  installUpdater("opt/.zephyl.updates/staged", "exit 0  # which it does not deserve");
  bool returned = true;
  const auto log = test::logOf([&] { returned = returns(); });
  EXPECT_FALSE(returned);
  EXPECT_EQ(told(), "opt/.zephyl.updates/staged " + command_ + "opt/zephyl " + command_);
  EXPECT_NE(log.find("could not roll back to the previous version"), std::string::npos);
  EXPECT_TRUE(fileExists(files_.trial));
}

TEST_F(TrialStartTest, ExecutesTheInstalledVersionWhateverTheUpdaterReported) {
  putOnTrial("2.0", maxTrialStarts);
  installUpdater("opt/zephyl", rollBack() + "; exit 1");
  EXPECT_TRUE(returns());
}

TEST_F(TrialStartTest, DoesNotWaitForAnUpdaterThatHangs) {
  putOnTrial("2.0", maxTrialStarts);
  const std::string pid = directory_ / "pid";
  installUpdater("opt/.zephyl.updates/previous", "sleep 1000 & echo $! > '" + pid + "'; wait");
  installUpdater("opt/zephyl", rollBack());
  const auto began = std::chrono::steady_clock::now();
  EXPECT_FALSE(returns());
  const auto took = std::chrono::steady_clock::now() - began;
  EXPECT_GE(took, trialStartTimeout - std::chrono::milliseconds(100));
  EXPECT_LT(took, trialStartTimeout + std::chrono::seconds(3));
  EXPECT_EQ(told(), "opt/.zephyl.updates/previous " + command_)
      << "no time is left for another updater";
  const auto left = static_cast<pid_t>(std::stol(readFile(pid).value()));
  EXPECT_TRUE(test::eventually([&] { return test::hasEnded(left); })) << "it is removed completely";
}

TEST_F(TrialStartTest, RunsNothingInADirectoryThatOthersMayEnter) {
  putOnTrial("2.0", maxTrialStarts);
  installUpdater("opt/.zephyl.updates/previous", rollBack());
  for (const mode_t mode : {0777U, 0755U, 0710U}) {
    ASSERT_EQ(::chmod(files_.directory.c_str(), mode), 0);
    const auto log = test::logOf([&] { EXPECT_FALSE(returns()); });
    EXPECT_EQ(log, "[tray] ignoring the state directory of updates: " + files_.directory +
                       " is open to other users.\n");
  }
  EXPECT_EQ(told(), "");
  EXPECT_EQ(starts(), maxTrialStarts);
}

TEST_F(TrialStartTest, RunsNothingBehindALinkOrOfAnotherUser) {
  putOnTrial("2.0", maxTrialStarts);
  installUpdater("opt/.zephyl.updates/previous", rollBack());
  std::filesystem::rename(files_.directory, directory_ / "elsewhere");
  std::filesystem::create_symlink(directory_ / "elsewhere", files_.directory);
  EXPECT_FALSE(returns());
  EXPECT_EQ(told(), "");
  if (::geteuid() != 0) GTEST_SKIP() << "the rest needs root, to give files to another user";
  std::filesystem::remove(files_.directory);
  std::filesystem::rename(directory_ / "elsewhere", files_.directory);
  ASSERT_EQ(::chown(files_.directory.c_str(), 54399, 54399), 0);
  EXPECT_FALSE(returns());
  EXPECT_EQ(told(), "");
}

TEST_F(TrialStartTest, RemovesANoteThatItCannotDecode) {
  putOnTrial("2.0", 0);
  directory_.write("opt/.zephyl.updates/trial.json", "");
  EXPECT_FALSE(returns());
  EXPECT_FALSE(fileExists(files_.trial));
}

TEST_F(TrialStartTest, RecordsARequestedEndAndDoesNotCountThatStart) {
  recordRequestedEnd(bundle_, {});
  EXPECT_FALSE(fileExists(files_.directory));
  putOnTrial("2.0", 2);
  recordRequestedEnd(bundle_, std::chrono::seconds(1));
  EXPECT_EQ(readMarker(files_.trial)->endedProcess, ::getpid());
  EXPECT_EQ(starts(), 1);
  recordRequestedEnd(bundle_, confirmationTimeout);
  EXPECT_EQ(starts(), 1) << "it was tried already";
  putOnTrial("2.0", 0);
  recordRequestedEnd(bundle_, {});
  EXPECT_EQ(starts(), 0);
  putOnTrial("3.0", 2);
  recordRequestedEnd(bundle_, {});
  EXPECT_EQ(starts(), 2) << "another version is on trial";
}

TEST_F(TrialStartTest, KnowsTheRunningVersionOnlyIfItIsInstalled) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  std::filesystem::remove(prefix_ + "/bin/zephyl-tray");
  std::filesystem::create_symlink(self, prefix_ + "/bin/zephyl-tray");
  EXPECT_EQ(runningVersion(bundle_), "2.0");
  std::filesystem::remove(prefix_ + "/bin/zephyl-tray");
  directory_.write("opt/zephyl/bin/zephyl-tray", "", true);
  EXPECT_EQ(runningVersion(bundle_), "");
}

}  // namespace
}  // namespace zephyl
