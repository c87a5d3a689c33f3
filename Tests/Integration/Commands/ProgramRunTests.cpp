#include "ZephylTray/Commands/Client/ProgramRun.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using namespace std::chrono_literals;

ProgramRun shell(const std::string& script, std::chrono::milliseconds limit = 30s) {
  return runProgram({"sh", "-c", script}, limit);
}

TEST(ProgramRun, ReturnsTheExitStatusAndTheStandardOutput) {
  const auto run = shell("echo one; echo two >&2; exit 3");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.output, "one");
  EXPECT_EQ(shell("true").status, 0);
}

TEST(ProgramRun, RemovesOnlyTheNewlinesAtTheEnd) {
  EXPECT_EQ(shell("printf 'a\\n\\nb\\n\\n'").output, "a\n\nb");
  EXPECT_EQ(shell("echo").output, "");
}

TEST(ProgramRun, AProgramThatDoesNotExistHasNoStatus) {
  const auto run = runProgram({"no-such-program"}, 30s);
  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(run.output, "");
}

TEST(ProgramRun, KillsAProgramThatExceedsTheLimit) {
  const auto begin = std::chrono::steady_clock::now();
  const auto run = shell("echo started; exec sleep 60", 300ms);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
  EXPECT_EQ(run.status, -1);
}

TEST(ProgramRun, KeepsTheBeginningOfALongOutput) {
  const auto run = shell("printf begin; head -c 100000 /dev/zero | tr '\\0' x");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output.size(), 4096U);
  EXPECT_TRUE(run.output.starts_with("beginxxx"));
}

TEST(ProgramRun, HasAnEmptyStandardInput) {
  const auto run = runProgram({"cat"}, 30s);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
}

}  // namespace
}  // namespace zephyl
