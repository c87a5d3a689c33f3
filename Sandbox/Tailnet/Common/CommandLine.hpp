#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "Common/Result.hpp"

namespace zephyl::sandbox {

/// How an option's value is written: "--name=value" or "--name value". A program takes one form.
enum class ValueForm { attached, separate };

struct Option {
  const char* name;
  const char* placeholder;
  const char* help;
  bool required = true;
};

struct Program {
  const char* name;
  const char* summary;
  ValueForm valueForm;
  std::span<const Option> options;
  /// What --help tells below the options.
  const char* closingHelp;
};

/// The options' values by name.
using Arguments = std::map<std::string, std::string, std::less<>>;

/// A text to print instead of running: the help or the version.
struct Notice {
  std::string text;
};

/// Reads the words after the program's name: exactly the program's options, in any order, each at
/// most once and with a value that is not empty. Anything else is a failure that says what is
/// wrong;
/// --help and --version go before all else.
Result<std::variant<Arguments, Notice>> readCommandLine(const Program& program,
                                                        std::span<const char* const> words);

}  // namespace zephyl::sandbox
