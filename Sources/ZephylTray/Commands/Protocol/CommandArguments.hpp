#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Result.hpp"

namespace zephyl {

/// The verbs of `zephyl-tray VERB`.
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

/// The parsed arguments of `zephyl-tray VERB`.
struct CommandArguments {
  /// The type that `defaults write` stores.
  enum class ValueType { string, integer };

  CommandVerb verb = CommandVerb::status;
  std::vector<std::string> operands;
  bool json = false;
  bool follow = false;
  std::optional<ValueType> valueType;
  /// If not empty, the program must print this text and end (`VERB --help`).
  std::string help;

  /// Returns whether the arguments name a verb instead of options of the tray.
  static bool nameVerb(std::span<const char* const> arguments);
  /// Parses the arguments after the name of the program. The error names the wrong one.
  static Result<CommandArguments> parse(std::span<const char* const> arguments);
  /// Returns a line for each verb, for `--help`.
  static std::string summary();
};

}  // namespace zephyl
