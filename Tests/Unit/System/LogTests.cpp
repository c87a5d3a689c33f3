#include "System/Files/Log.hpp"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support/LogCapture.hpp"

namespace zephyl {
namespace {

using Lines = std::vector<std::string>;

TEST(Log, WritesOneLineWithItsControlCharactersVisible) {
  EXPECT_EQ(test::logOf([] { log("from {}", "out\x1bside\n"); }), "[tray] from out␛side␊\n");
}

TEST(Log, IsWrittenOnlyToASinkWhileItLives) {
  Lines lines;
  const auto written = test::logOf([&] {
    {
      const LogSink sink([&](const std::string& line) { lines.push_back(line); }, true);
      log("one");
    }
    log("two");
  });
  EXPECT_EQ(lines, Lines{"[tray] one"});
  EXPECT_EQ(written, "[tray] two\n");
}

TEST(Log, IsAlsoWrittenToASink) {
  Lines lines;
  const auto written = test::logOf([&] {
    const LogSink sink([&](const std::string& line) { lines.push_back(line); }, false);
    log("one");
  });
  EXPECT_EQ(lines, Lines{"[tray] one"});
  EXPECT_EQ(written, "[tray] one\n");
}

TEST(Log, ASinkGetsEveryLineOfEveryThread) {
  Lines lines;
  const LogSink sink([&](const std::string& line) { lines.push_back(line); }, true);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([] {
      for (int line = 0; line < 250; ++line) logLine("a line");
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(lines, Lines(1000, "[tray] a line"));
}

}  // namespace
}  // namespace zephyl
