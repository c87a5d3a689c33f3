#include <csignal>
#include <span>

#include "System/Files/Bundle.hpp"
#include "System/Processes/CoreDumps.hpp"
#include "System/Processes/ProcessState.hpp"
#include "ZephylTray/Commands/Client/CommandClient.hpp"
#include "ZephylTray/Commands/Client/CommandTerminal.hpp"
#include "ZephylTray/Commands/Doctor/Doctor.hpp"

namespace zephyl {
namespace {

int run(std::span<const char* const> arguments) {
  const auto command = CommandArguments::parse(arguments);
  if (!command) {
    commandTerminal::complain(command.error().message + "\nTry 'zephyl-tray --help'.");
    return commandStatus::wrongUse;
  }
  if (!command->help.empty()) {
    commandTerminal::print(command->help);
    return commandStatus::success;
  }
  return command->verb == CommandVerb::doctor ? runDoctor(command->json) : runCommand(*command);
}

}  // namespace
}  // namespace zephyl

/// Executes `zephyl-tray VERB`: the tray's executable is replaced by this program. The first
/// argument is the path of the tray's executable, which locates the installation. The verb follows.
int main(int argc, char** argv) {
  using namespace zephyl;
  establishProcessState();
  coreDumps::disable();
  std::signal(SIGPIPE, SIG_DFL);  // ends this program if the reader of its output ends
  const std::span<const char* const> arguments(argv, static_cast<std::size_t>(argc));
  if (!CommandArguments::nameVerb(arguments.subspan(arguments.empty() ? 0 : 1))) {
    commandTerminal::complain("this program is run by zephyl-tray; see `zephyl-tray --help`");
    return commandStatus::wrongUse;
  }
  Bundle::setMain(Bundle(arguments.front()));
  return run(arguments.subspan(1));
}
