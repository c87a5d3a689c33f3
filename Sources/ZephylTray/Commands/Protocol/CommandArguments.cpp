#include "ZephylTray/Commands/Protocol/CommandArguments.hpp"

#include <algorithm>
#include <array>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

using Verb = CommandVerb;

/// The arguments and the description of a verb.
struct Usage {
  Verb verb;
  std::string_view name;
  std::string_view synopsis;  ///< without the name
  std::size_t minOperands;
  std::size_t maxOperands;
  std::string_view options;  ///< separated by spaces
  std::string_view description;
};

constexpr std::array<Usage, 16> usages{{
    {Verb::status, "status", "[--json]", 0, 0, "--json",
     "print the state and what needs your attention"},
    {Verb::servers, "servers", "[--json]", 0, 0, "--json", "list the servers"},
    {Verb::folders, "folders", "[--json]", 0, 0, "--json", "list the shared folders"},
    {Verb::requests, "requests", "[--json]", 0, 0, "--json",
     "list requests that wait for your approval"},
    {Verb::answer, "answer", "ID deny|once|always", 2, 2, "", "decide a request"},
    {Verb::logs, "logs", "[SERVER] [--follow]", 0, 1, "--follow -f",
     "show the log of the agent or of a server's network"},
    {Verb::diagnostics, "diagnostics", "", 0, 0, "", "print the document for a bug report"},
    {Verb::watch, "watch", "[--json]", 0, 0, "--json", "print a line for each change"},
    {Verb::join, "join", "", 0, 0, "", "join a server; reads the invite key from standard input"},
    {Verb::open, "open", "[SCREEN]", 0, 1, "", "open the window, at a screen such as \"servers\""},
    {Verb::restartAgent, "restart-agent", "", 0, 0, "", "restart the agent"},
    {Verb::restartTailnet, "restart-tailnet", "[SERVER]", 0, 1, "",
     "restart the network of a server, or of all"},
    {Verb::quit, "quit", "", 0, 0, "", "end the tray and the agent"},
    {Verb::defaults, "defaults", "read|write|delete [KEY] [VALUE]", 1, 3,
     "--json --string --integer", "read or change the stored settings"},
    {Verb::autostart, "autostart", "on|off|status", 1, 1, "",
     "set whether the tray starts with the session"},
    {Verb::doctor, "doctor", "[--json]", 0, 0, "--json", "list problems and their solutions"},
}};

const Usage* find(std::string_view name) {
  const auto found = std::ranges::find(usages, name, &Usage::name);
  return found == usages.end() ? nullptr : &*found;
}

std::string synopsis(const Usage& usage) {
  std::string text = formatText("zephyl-tray {}", usage.name);
  if (!usage.synopsis.empty()) text += formatText(" {}", usage.synopsis);
  return text;
}

Error wrongUse(const Usage& usage) {
  return Error{"usage: ", synopsis(usage)};
}

bool parseOption(std::string_view option, CommandArguments& into) {
  using Type = CommandArguments::ValueType;
  if (option == "--json") {
    into.json = true;
  } else if (option == "--follow" || option == "-f") {
    into.follow = true;
  } else if (option == "--string" || option == "--integer") {
    into.valueType = option == "--string" ? Type::string : Type::integer;
  } else {
    return false;
  }
  return true;
}

bool isOneOf(std::string_view word, std::string_view words) {
  return std::ranges::count(splitNonEmpty(words, ' '), word) > 0;
}

/// Returns whether the operands of a verb that accepts only certain words are among them.
bool hasKnownWords(const CommandArguments& parsed) {
  const auto& operands = parsed.operands;
  switch (parsed.verb) {
    case Verb::answer:
      return isOneOf(operands[1], "deny once always");
    case Verb::autostart:
      return isOneOf(operands[0], "on off status");
    case Verb::defaults:
      if (operands[0] == "read") return operands.size() <= 2;
      if (operands[0] == "delete") return operands.size() == 2;
      return operands[0] == "write" && operands.size() == 3;
    default:
      return true;
  }
}

}  // namespace

bool CommandArguments::nameVerb(std::span<const char* const> arguments) {
  return !arguments.empty() && !std::string_view(arguments.front()).starts_with('-');
}

Result<CommandArguments> CommandArguments::parse(std::span<const char* const> arguments) {
  const auto* const usage = find(arguments.front());
  if (usage == nullptr) {
    return Error{"unknown command '", visible(arguments.front()), "'"};
  }
  CommandArguments parsed{.verb = usage->verb};
  bool optionsMayFollow = true;
  for (const std::string_view argument : arguments.subspan(1)) {
    const bool isOption = optionsMayFollow && argument.size() > 1 && argument.starts_with('-') &&
                          !parseDecimal(argument);
    if (!isOption) {
      parsed.operands.emplace_back(argument);
    } else if (argument == "--") {
      optionsMayFollow = false;
    } else if (argument == "--help") {
      parsed.help = formatText("Usage: {}\n\nzephyl-tray {}: {}.\n", synopsis(*usage), usage->name,
                               usage->description);
      return parsed;
    } else if (!isOneOf(argument, usage->options) || !parseOption(argument, parsed)) {
      return Error{"unknown option '", visible(argument), "'; ", wrongUse(*usage).message};
    }
  }
  const auto count = parsed.operands.size();
  if (count < usage->minOperands || count > usage->maxOperands || !hasKnownWords(parsed)) {
    return wrongUse(*usage);
  }
  return parsed;
}

std::string CommandArguments::summary() {
  std::string text = "Commands:\n";
  for (const auto& usage : usages) {
    const auto call = formatText("{} {}", usage.name, usage.synopsis);
    text += formatText("  {:<41} {}\n", trimmed(call), usage.description);
  }
  return text;
}

}  // namespace zephyl
