#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Result.hpp"

namespace zephyl {

enum class CommandVerb {
  status,
  servers,
  folders,
  requests,
  answer,
  logs,
  diagnostics,
  watch,
  join,
  open,
  restartAgent,
  restartTailnet,
  quit,
  defaults,
  autostart,
  doctor,
};

/// What follows the name of the program when it is called with a verb.
struct CommandArguments {
  /// As what `defaults write` stores its value.
  enum class ValueType { string, integer };

  CommandVerb verb = CommandVerb::status;
  std::vector<std::string> operands;
  bool json = false;
  bool follow = false;
  std::optional<ValueType> valueType;
  /// Not empty: print this and end (`VERB --help`).
  std::string help;

  /// Whether the arguments of the program name a verb rather than options of the tray.
  static bool nameVerb(std::span<const char* const> arguments);
  /// Parses the arguments after the name of the program. The error says which one is wrong.
  static Result<CommandArguments> parse(std::span<const char* const> arguments);
  /// The verbs with a line each, for `--help`.
  static std::string summary();
};

}  // namespace zephyl
