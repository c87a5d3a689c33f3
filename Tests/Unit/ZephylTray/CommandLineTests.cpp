#include "ZephylTray/App/CommandLine.hpp"

#include <vector>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

Result<CommandLine> parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "zephyl-tray");
  return CommandLine::parse(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, DefaultsToTheDesktop) {
  EXPECT_EQ(parse({})->mode, CommandLine::Mode::desktop);
  EXPECT_EQ(parse({"--desktop"})->mode, CommandLine::Mode::desktop);
  EXPECT_EQ(parse({"--terminal"})->mode, CommandLine::Mode::terminal);
  EXPECT_EQ(parse({"--headless"})->mode, CommandLine::Mode::headless);
}

TEST(CommandLine, AnswersHelpAndVersion) {
  EXPECT_TRUE(parse({"--version"})->answer.starts_with("zephyl-tray 0."));
  const auto help = parse({"--headless", "--help"})->answer;
  for (const auto* option : {"--desktop", "--terminal", "--headless", "--version", "--help"}) {
    EXPECT_NE(help.find(option), std::string::npos) << option;
  }
}

TEST(CommandLine, RefusesUnknownArguments) {
  EXPECT_EQ(parse({"--headles"}).error().message, "unknown argument '--headles'");
  EXPECT_EQ(parse({"--headless", "status"}).error().message, "unknown argument 'status'");
  EXPECT_EQ(parse({"--version=1"}).error().message, "unknown argument '--version=1'");
  for (const auto* other : {"--desktop", "--terminal"}) {
    EXPECT_EQ(parse({other, "--headless"}).error().message,
              "--desktop, --terminal and --headless exclude each other");
  }
}

}  // namespace
}  // namespace zephyl
