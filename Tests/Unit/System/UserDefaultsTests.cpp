#include "System/Files/UserDefaults.hpp"

#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>

#include "Support/LogCapture.hpp"
#include "Support/NoMoreDescriptors.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {
namespace {

namespace fs = std::filesystem;

class UserDefaultsTest : public ::testing::Test {
 protected:
  void write(const std::string& text) { directory_.write("com.test/defaults.json", text); }
  std::string contents() { return *readFile(defaults_.path()); }
  std::size_t filesBesideIt() {
    const fs::directory_iterator files(directory_ / "com.test");
    return static_cast<std::size_t>(std::distance(begin(files), end(files))) - 1;
  }
  std::string theFileBesideIt() {
    for (const auto& entry : fs::directory_iterator(directory_ / "com.test")) {
      if (entry.path() != defaults_.path()) return entry.path();
    }
    return {};
  }

  test::TemporaryDirectory directory_;
  test::ScopedVariable configuration_{"XDG_CONFIG_HOME", directory_.path()};
  UserDefaults defaults_{"com.test"};
};

TEST_F(UserDefaultsTest, AreAFileUnderTheDomainsName) {
  EXPECT_EQ(defaults_.path(), directory_ / "com.test/defaults.json");
}

TEST_F(UserDefaultsTest, AreEmptyWithoutAFile) {
  EXPECT_EQ(defaults_.integer("a"), std::nullopt);
  EXPECT_EQ(defaults_.string("a"), std::nullopt);
}

TEST_F(UserDefaultsTest, AcceptOnlyIntegersAsIntegers) {
  write(R"({"positive": 9000, "negative": -5, "zero": 0, "text": "9000", "fraction": 9000.5,
            "true": true, "false": false, "null": null, "list": [1], "large": 9223372036854775807,
            "larger": 9223372036854775808, "largest": 1e300})");
  EXPECT_EQ(defaults_.integer("positive"), 9000);
  EXPECT_EQ(defaults_.integer("negative"), -5);
  EXPECT_EQ(defaults_.integer("zero"), 0);
  EXPECT_EQ(defaults_.integer("large"), INT64_MAX);
  for (const auto* key :
       {"text", "fraction", "true", "false", "null", "list", "larger", "largest", "absent"}) {
    EXPECT_EQ(defaults_.integer(key), std::nullopt) << key;
  }
}

TEST_F(UserDefaultsTest, AcceptOnlyTextsAsTexts) {
  write(R"({"text": " é ", "empty": "", "number": 1, "null": null})");
  EXPECT_EQ(defaults_.string("text"), " é ");
  EXPECT_EQ(defaults_.string("empty"), "");
  for (const auto* key : {"number", "null", "absent"}) {
    EXPECT_EQ(defaults_.string(key), std::nullopt) << key;
  }
}

TEST_F(UserDefaultsTest, SeeChangesOfOtherProgramsAtOnce) {
  write(R"({"a": "1"})");
  EXPECT_EQ(defaults_.string("a"), "1");
  write(R"({"a": "2"})");
  EXPECT_EQ(defaults_.string("a"), "2");
}

TEST_F(UserDefaultsTest, CreatePrivateDirectories) {
  const test::ScopedVariable deeper("XDG_CONFIG_HOME", directory_ / "x/y");
  defaults_.setString("a", "one");
  EXPECT_EQ(defaults_.string("a"), "one");
  EXPECT_EQ(fs::status(directory_ / "x/y/com.test").permissions(), fs::perms::owner_all);
  EXPECT_EQ(fs::status(defaults_.path()).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(UserDefaultsTest, KeepUnknownKeys) {
  write(R"({"b": [1, {"c": 18446744073709551615}], "a": 1})");
  defaults_.setString("a", "é\n");
  EXPECT_EQ(contents(),
            "{\n  \"a\": \"é\\n\",\n  \"b\": [\n    1,\n    {\n      \"c\": "
            "18446744073709551615\n    }\n  ]\n}\n");
}

TEST_F(UserDefaultsTest, ForgetAKey) {
  defaults_.setString("a", "1");
  defaults_.setString("b", "2");
  defaults_.remove("a");
  EXPECT_EQ(defaults_.string("a"), std::nullopt);
  EXPECT_EQ(defaults_.string("b"), "2");
}

TEST_F(UserDefaultsTest, WriteNothingWhenNothingChanges) {
  defaults_.remove("a");
  EXPECT_FALSE(fileExists(defaults_.path()));
  write(R"({ "a":"1" })");
  defaults_.setString("a", "1");
  defaults_.remove("b");
  EXPECT_EQ(contents(), R"({ "a":"1" })");
}

TEST_F(UserDefaultsTest, CopyAnUnreadableFileAsideOnceBeforeReplacingIt) {
  for (const auto* bad : {R"({"a": )", R"(["a"])", "\xFF", ""}) {
    fs::remove_all(directory_ / "com.test");
    write(bad);
    EXPECT_EQ(defaults_.string("a"), std::nullopt);
    EXPECT_EQ(filesBesideIt(), 0U);

    EXPECT_TRUE(test::logOf([&] {
                  defaults_.setString("a", "1");
                }).starts_with("[tray] user defaults are unreadable (" + defaults_.path()));
    EXPECT_EQ(test::logOf([&] { defaults_.setString("b", "2"); }), "");
    EXPECT_EQ(defaults_.string("a"), "1");
    ASSERT_EQ(filesBesideIt(), 1U);
    EXPECT_EQ(*readFile(theFileBesideIt()), bad);
  }
}

TEST_F(UserDefaultsTest, LogAWriteThatFailsAndChangeNothing) {
  fs::create_directories(defaults_.path());
  EXPECT_EQ(test::logOf([&] { defaults_.setString("a", "1"); }),
            "[tray] could not write the user defaults: " + defaults_.path() + ": Is a directory\n");
  EXPECT_EQ(defaults_.string("a"), std::nullopt);
  EXPECT_EQ(filesBesideIt(), 0U);
}

TEST_F(UserDefaultsTest, RefuseAChangeDuringAShortage) {
  write(R"({"a": "1"})");
  EXPECT_EQ(
      test::logOf([&] {
        const test::NoMoreDescriptors limit;
        defaults_.setString("b", "2");
      }),
      "[tray] could not write the user defaults: " + defaults_.path() + ": Too many open files\n");
  EXPECT_EQ(contents(), R"({"a": "1"})");
  EXPECT_EQ(filesBesideIt(), 0U);
}

TEST_F(UserDefaultsTest, RefuseATextThatWouldMakeTheFileUnreadable) {
  defaults_.setString("a", "1");
  EXPECT_EQ(test::logOf([&] { defaults_.setString("a", "\xC3("); }),
            "[tray] could not write the user defaults: " + defaults_.path() +
                ": the new value is not valid UTF-8\n");
  EXPECT_EQ(defaults_.string("a"), "1");
}

TEST_F(UserDefaultsTest, LoseNoneOfTheChangesOfSeveralThreads) {
  std::vector<std::jthread> threads(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads[static_cast<std::size_t>(thread)] = std::jthread([this, thread] {
      for (int key = 0; key < 5; ++key) {
        defaults_.setString(std::to_string(thread) + "." + std::to_string(key), "x");
      }
    });
  }
  threads.clear();
  for (int thread = 0; thread < 4; ++thread) {
    for (int key = 0; key < 5; ++key) {
      EXPECT_EQ(defaults_.string(std::to_string(thread) + "." + std::to_string(key)), "x");
    }
  }
}

TEST_F(UserDefaultsTest, LoseNoneOfTheChangesOfSeveralProcesses) {
  // Each thread has its own store, like separate processes.
  std::vector<std::jthread> processes(2);
  for (int process = 0; process < 2; ++process) {
    processes[static_cast<std::size_t>(process)] = std::jthread([process] {
      UserDefaults defaults("com.test");
      for (int key = 0; key < 10; ++key) {
        defaults.setString(std::to_string(process) + "." + std::to_string(key), "x");
      }
    });
  }
  processes.clear();
  EXPECT_EQ(defaults_.values()->size(), 20U);
}

TEST_F(UserDefaultsTest, AreNotBlockedByAProcessThatKeepsTheLock) {
  defaults_.setString("a", "1");
  const FileDescriptor stopped(::open((directory_ / "com.test").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(stopped.get(), LOCK_EX), 0);
  defaults_.setString("a", "2");
  EXPECT_EQ(defaults_.string("a"), "2");
}

TEST_F(UserDefaultsTest, ReturnAllValuesWithTheirTypes) {
  EXPECT_EQ(*defaults_.values(), json::Object());
  ASSERT_TRUE(defaults_.change([](auto& values) { values["port"] = 9000; }));
  defaults_.setString("name", "9000");
  EXPECT_EQ(*defaults_.values(), (json::Object{{"port", 9000}, {"name", "9000"}}));
  EXPECT_EQ(defaults_.integer("port"), 9000);
}

TEST_F(UserDefaultsTest, ReportWhyTheyCannotBeReadOrChanged) {
  write("[]");
  EXPECT_FALSE(defaults_.values());
  EXPECT_FALSE(defaults_.change([](auto& values) { values["a"] = "\xC3("; }));
}

}  // namespace
}  // namespace zephyl
