#include "ZephylTray/App/CommandLine.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "ZephylTray/Commands/Protocol/CommandArguments.hpp"

namespace zephyl {

namespace {

using Mode = CommandLine::Mode;

struct Option {
  std::string_view name;
  std::string_view description;
};

/// The first three are the modes, in the order of `Mode`.
constexpr std::array<Option, 5> options{{
    {"--desktop", "show a status item in the desktop's panel (the default)"},
    {"--terminal", "show the menu in this terminal"},
    {"--headless", "show nothing; write the state to standard error"},
    {"--version", "print the version and exit"},
    {"--help", "print this help and exit"},
}};

std::string help() {
  std::string text =
      "Usage: zephyl-tray [--desktop | --terminal | --headless]\n"
      "       zephyl-tray COMMAND [ARGUMENT...]\n\n"
      "Keeps this workstation connected to its Zephyl servers: starts and supervises the agent\n"
      "that shares project folders, and shows its state. A command controls the running tray.\n\n"
      "Options:\n";
  for (const auto& option : options) {
    text += formatText("  {:<21} {}\n", option.name, option.description);
  }
  return text + "\n" + CommandArguments::summary() +
         "\nRun zephyl-tray COMMAND --help for help on a command.\n";
}

}  // namespace

Result<CommandLine> CommandLine::parse(int argc, const char* const* argv) {
  CommandLine commandLine;
  bool hasMode = false;
  for (const std::string_view argument :
       std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
    const auto* const option = std::ranges::find(options, argument, &Option::name);
    if (option == options.end()) return Error{"unknown argument '", visible(argument), "'"};
    if (argument == "--help") {
      commandLine.answer = help();
    } else if (argument == "--version") {
      if (commandLine.answer.empty()) commandLine.answer = "zephyl-tray " ZEPHYL_VERSION "\n";
    } else {
      const auto mode = static_cast<Mode>(option - options.begin());
      if (hasMode && mode != commandLine.mode) {
        return Error{"--desktop, --terminal and --headless exclude each other"};
      }
      commandLine.mode = mode;
      hasMode = true;
    }
  }
  return commandLine;
}

}  // namespace zephyl
