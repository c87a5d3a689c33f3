#include "ZephylTray/Commands/Client/CommandTerminal.hpp"

#include <cstdio>
#include <thread>

#include "StandardStreams.hpp"
#include "Support/Eventually.hpp"
#include "Support/LogCapture.hpp"

namespace zephyl {
namespace {

using test::StandardInput;
using test::Terminal;

TEST(CommandTerminal, ReadsTheKeyInTheFirstLine) {
  const StandardInput input(" \t inv_v2_key \r\nmore\n");
  std::string prompt = "?";
  prompt = test::logOf([] {
    const auto key = commandTerminal::readKey();
    ASSERT_TRUE(key) << key.error().message;
    EXPECT_EQ(*key, "inv_v2_key");
  });
  EXPECT_EQ(prompt, "") << "only a terminal is prompted";
}

TEST(CommandTerminal, ReadsAKeyWithoutAnEndOfLine) {
  const StandardInput input("inv_v2_key");
  EXPECT_EQ(*commandTerminal::readKey(), "inv_v2_key");
}

TEST(CommandTerminal, ReadsAKeyOfUpTo4KiB) {
  const std::string longest(4096, 'k');
  {
    const StandardInput input(longest + "\n");
    EXPECT_EQ(*commandTerminal::readKey(), longest);
  }
  const StandardInput input(longest + "k\n");
  EXPECT_EQ(commandTerminal::readKey().error().message, "The input is too long for an invite key.");
}

TEST(CommandTerminal, RefusesAnEmptyKey) {
  for (const auto* text : {"", "\n", " \t\r\nkey\n"}) {
    const StandardInput input(text);
    EXPECT_EQ(commandTerminal::readKey().error().message, "Standard input contains no invite key.");
  }
}

TEST(CommandTerminal, DoesNotShowAKeyThatIsTyped) {
  Terminal terminal;
  std::jthread user([&] {
    EXPECT_TRUE(test::eventually([&] { return !terminal.echoes(); }));
    EXPECT_TRUE(test::eventually([&] { return terminal.shown().ends_with("key: "); }));
    terminal.type("inv_v2_key\n");
  });
  EXPECT_EQ(*commandTerminal::readKey(), "inv_v2_key");
  user.join();
  EXPECT_EQ(terminal.shown(), "Invite key: \r\n");
  EXPECT_TRUE(terminal.echoes());
}

TEST(CommandTerminal, PromptsOnlyATerminal) {
  {
    const Terminal terminal;
    EXPECT_TRUE(commandTerminal::canAsk());
    const StandardInput input("");
    EXPECT_FALSE(commandTerminal::canAsk());
  }
  const StandardInput input("");
  EXPECT_FALSE(commandTerminal::canAsk());
}

TEST(CommandTerminal, AnAnswerIsTypedAfterTheQuestion) {
  Terminal terminal;
  terminal.type("typed before\n");
  const std::jthread user([&] {
    EXPECT_TRUE(test::eventually([&] { return terminal.shown().ends_with("Sure? "); }));
    terminal.type("  ALWAYS ALLOW \n");
  });
  EXPECT_EQ(commandTerminal::ask("Sure? "), "ALWAYS ALLOW");
}

TEST(CommandTerminal, ReportsAnOutputThatCannotBeWritten) {
  bool printed = false;
  EXPECT_EQ(test::outputOf([&] { printed = commandTerminal::print("text\n"); }), "text\n");
  EXPECT_TRUE(printed);
  {
    const FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    const test::ScopedDescriptor output(STDOUT_FILENO, full);
    EXPECT_FALSE(commandTerminal::print("text\n"));
  }
  std::clearerr(stdout);
}

TEST(CommandTerminal, ComplainsOnOneLineAndFails) {
  int status = 0;
  EXPECT_EQ(test::logOf([&] { status = commandTerminal::fail("why\x1b"); }), "zephyl-tray: why␛\n");
  EXPECT_EQ(status, 1);
}

}  // namespace
}  // namespace zephyl
