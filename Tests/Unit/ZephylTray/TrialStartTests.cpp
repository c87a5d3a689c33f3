#include "ZephylTray/TrialStart.hpp"

#include <gtest/gtest.h>

#include "Support/LogCapture.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Bundle.hpp"
#include "System/Files.hpp"
#include "UpdateMessages/UpdateFiles.hpp"

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
  /// An updater program that writes down what it is told, and who it is.
  void installUpdater(const std::string& place, int status) {
    directory_.write(place + "/libexec/zephyl-tray/zephyl-tray-updater",
                     "#!/bin/sh\necho \"" + place + " $(cat)\" >> '" + (directory_ / "told") +
                         "'\nexit " + std::to_string(status) + "\n",
                     true);
  }
  void putOnTrial(const std::string& version, std::int64_t starts) {
    directory_.write("opt/.zephyl.updates/here", "");
    ASSERT_TRUE(
        writeNote(files_.trial, {.version = version, .displayVersion = version, .starts = starts}));
  }
  [[nodiscard]] std::int64_t starts() const { return readNote(files_.trial).value().starts; }
  [[nodiscard]] std::string told() const {
    const auto text = readFile(directory_ / "told");
    return text ? *text : "";
  }
  [[nodiscard]] bool returns() const { return returnsToPreviousVersion(bundle_); }

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
  // What an exchange that never came leaves, and a return that did.
  putOnTrial("3.0", 7);
  installUpdater("opt/.zephyl.updates/previous", 0);
  EXPECT_FALSE(returns());
  EXPECT_EQ(starts(), 7);
  EXPECT_EQ(told(), "");
  EXPECT_FALSE(returnsToPreviousVersion(Bundle(directory_ / "build/zephyl-tray")));
  EXPECT_FALSE(returnsToPreviousVersion(Bundle(std::nullopt)));
}

TEST_F(TrialStartTest, ComparesVersionsAsUpdatesDo) {
  directory_.write("opt/zephyl/share/zephyl-tray/Info.json",
                   R"({"CFBundleShortVersionString": "2.0", "CFBundleVersion": "200"})");
  putOnTrial("200", 0);
  EXPECT_FALSE(returns());
  EXPECT_EQ(starts(), 1);
}

TEST_F(TrialStartTest, HasTheUpdaterOfTheVersionBeforeTakeBackOneThatNeverCameUp) {
  putOnTrial("2.0", maxTrialStarts);
  installUpdater("opt/zephyl", 0);
  installUpdater("opt/.zephyl.updates/staged", 0);
  installUpdater("opt/.zephyl.updates/previous", 0);
  bool returned = false;
  const auto log = test::logOf([&] { returned = returns(); });
  EXPECT_TRUE(returned);
  EXPECT_EQ(told(), "opt/.zephyl.updates/previous " + command_);
  EXPECT_EQ(log,
            "[tray] version 2.0 was started 3 times and never came up; returning to the version "
            "before\n");
}

TEST_F(TrialStartTest, TriesOtherUpdatersAndStartsAllTheSameWhenNoneHelps) {
  putOnTrial("2.0", maxTrialStarts);
  installUpdater("opt/zephyl", 1);
  installUpdater("opt/.zephyl.updates/staged", 1);
  bool returned = true;
  const auto log = test::logOf([&] { returned = returns(); });
  EXPECT_FALSE(returned);
  EXPECT_EQ(told(), "opt/.zephyl.updates/staged " + command_ + "opt/zephyl " + command_);
  EXPECT_NE(log.find("could not return to the version before"), std::string::npos);
  EXPECT_TRUE(fileExists(files_.trial));
}

TEST_F(TrialStartTest, BecomesWhateverStandsInPlaceHoweverThatWasReported) {
  putOnTrial("2.0", maxTrialStarts);
  directory_.write(
      "opt/zephyl/libexec/zephyl-tray/zephyl-tray-updater",
      "#!/bin/sh\nsed -i s/2.0/1.0/ '" + prefix_ + "/share/zephyl-tray/Info.json'\nexit 1\n", true);
  EXPECT_TRUE(returns());
}

}  // namespace
}  // namespace zephyl
