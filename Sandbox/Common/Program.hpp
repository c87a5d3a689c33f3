#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "System/Data/Result.hpp"

/// Shared code of the stand-ins' main functions: command line, environment, exit status.
namespace zephyl::sandbox {

constexpr int usageStatus = 2;

/// The permitted forms of an option's value: "--name=value", "--name value", or both.
enum class ValueForm { attached, separate, either };

struct Option {
  const char* name;
  const char* placeholder;
  const char* help;
  bool isRequired = true;
};

struct Program {
  const char* name;
  const char* summary;
  ValueForm valueForm;
  std::span<const Option> options;
  /// The text of --help below the options.
  const char* closingHelp;
};

/// The options' values by name.
using Arguments = std::map<std::string, std::string, std::less<>>;

/// A text to print instead of running: the help or the version.
struct Notice {
  std::string text;
};

/// Parses the words after the program's name: the program's options in any order, each at most once
/// and with a non-empty value. Anything else is an error. --help and --version have precedence.
Result<std::variant<Arguments, Notice>> readCommandLine(const Program& program,
                                                        std::span<const char* const> words);

/// Reads settings from the command line and the environment and keeps the first error. An invalid
/// value reads as zero or empty.
class SettingsReader {
 public:
  explicit SettingsReader(const Arguments& arguments) : arguments_(arguments) {}

  /// Returns the option's value, else that of the variable. Either name may be null. An empty value
  /// counts as absent.
  [[nodiscard]] std::optional<std::string> find(const char* option,
                                                const char* variable = nullptr) const;
  [[nodiscard]] std::string text(const char* option, const char* variable = nullptr) const;

  double number(const char* option, const char* variable, double otherwise, double min = 0,
                double max = 1e12);
  std::int64_t integer(std::string_view name, std::string_view text, std::int64_t max);
  /// A number of seconds, at most a billion.
  std::optional<std::chrono::milliseconds> seconds(const char* option,
                                                   const char* variable = nullptr, double min = 0);

  void fail(Error error);
  [[nodiscard]] const std::optional<Error>& error() const { return error_; }

 private:
  const Arguments& arguments_;
  std::optional<Error> error_;
};

/// Prints "<program>: <message>" to standard error. Returns the exit status.
int reportFailure(const char* program, std::string_view message, int status = 1);

/// Runs a stand-in: reads the command line, then its settings, and serves until it ends. Returns
/// the exit status. `serve` returns the exit status or the reason why it could not start.
template <typename Settings>
int runProgram(const Program& program, std::span<const char* const> words,
               Result<Settings> (*readSettings)(SettingsReader reader),
               Result<int> (*serve)(const Settings& settings)) try {
  // Writing to a closed connection or log must only fail, not end the process.
  std::signal(SIGPIPE, SIG_IGN);
  const auto commandLine = readCommandLine(program, words.subspan(1));
  if (!commandLine) return reportFailure(program.name, commandLine.error().message, usageStatus);
  if (const auto* notice = std::get_if<Notice>(&*commandLine)) {
    std::fputs(notice->text.c_str(), stdout);
    return 0;
  }
  const auto settings = readSettings(SettingsReader(std::get<Arguments>(*commandLine)));
  if (!settings) return reportFailure(program.name, settings.error().message, usageStatus);
  const auto status = serve(*settings);
  return status ? *status : reportFailure(program.name, status.error().message);
} catch (const std::exception& error) {
  return reportFailure(program.name, error.what());
}

}  // namespace zephyl::sandbox
