#include "Common/Program.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"

// Boost.Program_options always accepts both forms of a value.
namespace zephyl::sandbox {
namespace {

constexpr double maxSeconds = 1e9;

std::string usageOf(const Program& program, const Option& option) {
  const char separator = program.valueForm == ValueForm::attached ? '=' : ' ';
  return formatText("--{}{}{}", option.name, separator, option.placeholder);
}

std::string helpText(const Program& program) {
  auto text = formatText("{}: {}\n\nOptions:\n", program.name, program.summary);
  for (const auto& option : program.options) {
    text += formatText("  {:<30} {}\n", usageOf(program, option), option.help);
  }
  text += formatText("  {:<30} {}\n", "--version", "print the version");
  text += formatText("  {:<30} {}\n", "--help", "print this help");
  return text + program.closingHelp;
}

std::optional<Notice> noticeFor(const Program& program, std::span<const char* const> words) {
  for (const std::string_view word : words) {
    if (word == "--help") return Notice{helpText(program)};
    if (word == "--version") {
      return Notice{formatText("{} {} (stand-in)\n", program.name, ZEPHYL_VERSION)};
    }
  }
  return std::nullopt;
}

/// Removes one option with its value from the front of the words.
Result<Arguments::value_type> takeOption(const Program& program,
                                         std::span<const char* const>& words) {
  const std::string_view word = words.front();
  words = words.subspan(1);
  const auto equals = std::min(word.find('='), word.size());
  const bool isAttached = program.valueForm == ValueForm::attached ||
                          (program.valueForm == ValueForm::either && equals < word.size());
  const auto written = word.substr(0, isAttached ? equals : word.size());
  const auto option = std::ranges::find_if(program.options, [&](const Option& known) {
    return written == formatText("--{}", known.name);
  });
  if (option == program.options.end()) return Error{"unknown argument '", word, "'"};
  if (isAttached ? equals == word.size() : words.empty()) {
    return Error{"an option lacks its value: ", usageOf(program, *option)};
  }
  std::string value(isAttached ? word.substr(equals + 1) : words.front());
  if (!isAttached) words = words.subspan(1);
  if (value.empty()) return Error{"--", option->name, " is empty"};
  return Arguments::value_type(option->name, std::move(value));
}

std::optional<double> parseNumber(std::string_view text) {
  double value = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

Result<std::variant<Arguments, Notice>> readCommandLine(const Program& program,
                                                        std::span<const char* const> words) {
  using Reading = std::variant<Arguments, Notice>;
  if (auto notice = noticeFor(program, words)) return Reading(*std::move(notice));
  Arguments arguments;
  while (!words.empty()) {
    auto option = takeOption(program, words);
    if (!option) return option.error();
    const auto [position, isNew] = arguments.insert(*std::move(option));
    if (!isNew) return Error{"--", position->first, " is given twice"};
  }
  for (const auto& option : program.options) {
    if (!option.isRequired || arguments.contains(option.name)) continue;
    return Error{usageOf(program, option), " is missing"};
  }
  return Reading(std::move(arguments));
}

std::optional<std::string> SettingsReader::find(const char* option, const char* variable) const {
  const auto given = option ? arguments_.find(option) : arguments_.end();
  if (given != arguments_.end()) return given->second;
  auto value = variable ? environmentVariable(variable) : std::nullopt;
  if (value && value->empty()) value.reset();
  return value;
}

std::string SettingsReader::text(const char* option, const char* variable) const {
  return find(option, variable).value_or("");
}

double SettingsReader::number(const char* option, const char* variable, double otherwise,
                              double min, double max) {
  const auto given = find(option, variable);
  if (!given) return otherwise;
  const auto value = parseNumber(*given);
  if (value && *value >= min && *value <= max) return *value;
  const bool isOption = option && arguments_.contains(option);
  fail({isOption ? option : variable, formatText(" must be a number from {} to {}", min, max)});
  return 0;
}

std::int64_t SettingsReader::integer(std::string_view name, std::string_view text,
                                     std::int64_t max) {
  const auto value = parseDecimal(text);
  if (value && *value >= 0 && *value <= max) return *value;
  fail({text, " is not ", name});
  return 0;
}

std::optional<std::chrono::milliseconds> SettingsReader::seconds(const char* option,
                                                                 const char* variable, double min) {
  if (!find(option, variable)) return std::nullopt;
  return std::chrono::milliseconds(
      std::llround(number(option, variable, 0, min, maxSeconds) * 1000));
}

void SettingsReader::fail(Error error) {
  if (!error_) error_ = std::move(error);
}

int reportFailure(const char* program, std::string_view message, int status) {
  std::fputs(formatText("{}: {}\n", program, message).c_str(), stderr);
  return status;
}

}  // namespace zephyl::sandbox
