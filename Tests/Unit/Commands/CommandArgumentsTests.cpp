#include "ZephylTray/Commands/Protocol/CommandArguments.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Strings = std::vector<std::string>;

Result<CommandArguments> parse(const std::vector<const char*>& arguments) {
  return CommandArguments::parse(arguments);
}

TEST(CommandArguments, AreDistinguishedFromOptionsOfTheTray) {
  const std::vector<const char*> verb{"status"};
  const std::vector<const char*> option{"--headless", "status"};
  EXPECT_TRUE(CommandArguments::nameVerb(verb));
  EXPECT_FALSE(CommandArguments::nameVerb(option));
  EXPECT_FALSE(CommandArguments::nameVerb({}));
}

TEST(CommandArguments, AcceptOptionsAndOperandsInAnyOrder) {
  EXPECT_TRUE(parse({"status", "--json"})->json);
  const auto logs = parse({"logs", "--follow", "Patient Hill"});
  EXPECT_TRUE(logs->follow);
  EXPECT_EQ(logs->operands, Strings{"Patient Hill"});
  EXPECT_TRUE(parse({"logs", "Patient Hill", "-f"})->follow);
  EXPECT_EQ(parse({"answer", "a1", "once"})->operands, (Strings{"a1", "once"}));
  EXPECT_EQ(parse({"restart-tailnet"})->verb, CommandVerb::restartTailnet);
  for (const auto& operands : std::vector<std::vector<const char*>>{
           {"read"}, {"read", "k"}, {"write", "k", "v"}, {"delete", "k"}}) {
    std::vector<const char*> words{"defaults"};
    words.insert(words.end(), operands.begin(), operands.end());
    EXPECT_EQ(parse(words)->operands, Strings(operands.begin(), operands.end()));
  }
}

TEST(CommandArguments, TreatNegativeNumbersAndWordsAfterTwoDashesAsOperands) {
  EXPECT_EQ(parse({"defaults", "write", "k", "-5"})->operands[2], "-5");
  EXPECT_EQ(parse({"defaults", "write", "k", "--", "--json"})->operands[2], "--json");
}

TEST(CommandArguments, NameTheMistake) {
  EXPECT_EQ(parse({"folder"}).error().message, "unknown command 'folder'");
  EXPECT_EQ(parse({"status", "--jsn"}).error().message,
            "unknown option '--jsn'; usage: zephyl-tray status [--json]");
  EXPECT_EQ(parse({"quit", "--json"}).error().message,
            "unknown option '--json'; usage: zephyl-tray quit");
  for (const auto& wrong : std::vector<std::vector<const char*>>{{"answer", "a1"},
                                                                 {"answer", "a1", "yes"},
                                                                 {"answer", "a1", "once", "more"},
                                                                 {"autostart", "maybe"},
                                                                 {"defaults", "read", "a", "b"},
                                                                 {"defaults", "write", "a"},
                                                                 {"defaults", "delete"},
                                                                 {"defaults", "list"}}) {
    EXPECT_TRUE(parse(wrong).error().message.starts_with("usage: zephyl-tray ")) << wrong[0];
  }
}

TEST(CommandArguments, DescribeThemselves) {
  EXPECT_TRUE(parse({"join", "--help"})->help.starts_with("Usage: zephyl-tray join\n"));
  const auto summary = CommandArguments::summary();
  for (const auto* verb : {"status", "servers", "folders", "requests", "answer", "logs",
                           "diagnostics", "watch", "join", "open", "restart-agent",
                           "restart-tailnet", "quit", "defaults", "autostart", "doctor"}) {
    EXPECT_NE(summary.find(std::string("\n  ") + verb + " "), std::string::npos) << verb;
  }
}

}  // namespace
}  // namespace zephyl
