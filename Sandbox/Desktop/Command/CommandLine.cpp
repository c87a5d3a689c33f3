#include "Desktop/Command/CommandLine.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "System/Data/Format.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr auto closingHelp = R"(
ID is a server's id, an unambiguous prefix of it, or the server's name. FOLDER is a path or a name
from `folders`. An invite key is secret: "-" reads it from standard input, so that it does not
appear in the list of processes and the shell's history.

Options:
  --json    print the answer of the tray's control API unchanged
  --help    print this help

Environment:
  ZEPHYL_SANDBOX_DESKTOP_SOCKET   the window's socket, else Zephyl/desktop.sock in $XDG_DATA_HOME
                                  or ~/.local/share

Without a command it runs the window, or brings an open window to the front. If the tray starts it
without a display, it only accepts commands.
)";

std::string usageOf(const Verb& verb) {
  return verb.operands.empty() ? std::string(verb.name)
                               : formatText("{} {}", verb.name, verb.operands);
}

std::string helpText(std::string_view program, std::span<const Verb> verbs) {
  auto text = formatText(
      "A stand-in for the desktop window app, for development.\n\n"
      "Usage: {} [--json] COMMAND\n\nCommands:\n",
      program);
  for (const auto& verb : verbs) text += formatText("  {:<20}  {}\n", usageOf(verb), verb.help);
  return text + closingHelp;
}

std::size_t countOperands(const Verb& verb) {
  const auto spaces = std::count(verb.operands.begin(), verb.operands.end(), ' ');
  return verb.operands.empty() ? 0 : static_cast<std::size_t>(spaces) + 1;
}

Result<Invocation> readWords(std::span<const char* const> words) {
  Invocation invocation;
  bool optionsEnded = false;
  for (const std::string_view word : words) {
    if (!optionsEnded && word == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && word == "--json") {
      invocation.json = true;
    } else if (!optionsEnded && word.size() > 1 && word.starts_with('-')) {
      return Error{"unknown option '", word, "'"};
    } else if (invocation.verb.empty()) {
      invocation.verb = word;
    } else {
      invocation.operands.emplace_back(word);
    }
  }
  return invocation;
}

bool wantsHelp(std::span<const char* const> words) {
  const auto end = std::find(words.begin(), words.end(), std::string_view("--"));
  return std::any_of(words.begin(), end,
                     [](std::string_view word) { return word == "--help" || word == "-h"; });
}

}  // namespace

Result<std::variant<Invocation, Notice>> readCommandLine(std::string_view program,
                                                         std::span<const Verb> verbs,
                                                         std::span<const char* const> words) {
  using Reading = std::variant<Invocation, Notice>;
  if (wantsHelp(words)) return Reading(Notice{helpText(program, verbs)});
  auto invocation = readWords(words);
  if (!invocation) return invocation.error();
  if (invocation->verb.empty()) return Error{"no command"};
  const auto verb = std::find_if(verbs.begin(), verbs.end(),
                                 [&](const Verb& known) { return known.name == invocation->verb; });
  if (verb == verbs.end()) return Error{"unknown command '", invocation->verb, "'"};
  if (invocation->operands.size() != countOperands(*verb)) {
    return Error{"the command is: ", usageOf(*verb)};
  }
  return Reading(*std::move(invocation));
}

}  // namespace zephyl::sandbox::desktop
