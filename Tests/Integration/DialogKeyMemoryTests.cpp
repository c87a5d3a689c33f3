#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include "Helpers/Dialogs/Client/ProcessDialogs.hpp"
#include "Support/Eventually.hpp"
#include "Support/ManualClock.hpp"
#include "Support/MemorySearch.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Data/Secret.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"

namespace zephyl {
namespace {

/// Letters from which the program makes the key by exchanging the halves of the alphabet.
constexpr std::string_view letters = "zqxjkvbpygfwmucldrhsnioatezqxjkvbpygfwm";

/// Returns the key inside out for the search, so that this process never contains the key itself.
std::string disguisedKey() {
  std::string key;
  for (const char letter : letters) {
    key.push_back(static_cast<char>(~(letter < 'n' ? letter + 13 : letter - 13)));
  }
  return key;
}

TEST(DialogKeyMemory, HoldsOneCopyOfTheTypedKeyUntilItIsCleared) {
  std::signal(SIGPIPE, SIG_IGN);
  const test::TemporaryDirectory directory;
  const auto program = directory.write(
      "dialogs",
      "#!/bin/sh\nread request\necho '{\"shown\":true}'\nkey=$(echo " + std::string(letters) +
          " | tr a-z n-za-m)\necho '{\"answer\":{\"button\":0,\"text\":\"'$key'\"}}'\n",
      true);
  MainLoop mainLoop;
  Guardian guardian = *Guardian::start();
  Reactor reactor;
  test::ManualClock clock;
  SystemProcessLauncher launcher(reactor, guardian);
  ProcessDialogs dialogs(mainLoop, clock, launcher, program);
  std::optional<AlertAnswer> typed;
  const auto handle =
      dialogs.presentAlert({.buttons = {"Join"}, .textField = Alert::TextField{}},
                           [&](std::optional<AlertAnswer> answer) { typed = std::move(answer); });
  ASSERT_TRUE(test::eventually([&] {
    mainLoop.runPending();
    return typed.has_value();
  }));
  reactor.run([] {});
  mainLoop.runPending();

  // The allocator overwrites the beginning of freed memory.
  const std::string rest = disguisedKey().substr(16);
  test::MemorySearch search;
  EXPECT_EQ(typed->text.size(), letters.size());
  EXPECT_EQ(search.count(rest), 1U);
  typed->text.clear();
  EXPECT_EQ(search.count(rest), 0U);
}

}  // namespace
}  // namespace zephyl
