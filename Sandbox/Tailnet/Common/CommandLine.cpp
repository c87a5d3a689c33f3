#include "Tailnet/Common/CommandLine.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

// Boost.Program_options is no help here: it always takes both forms of a value.
namespace zephyl::sandbox {
namespace {

std::string usageOf(const Program& program, const Option& option) {
  const char separator = program.valueForm == ValueForm::attached ? '=' : ' ';
  return fmt::format("--{}{}{}", option.name, separator, option.placeholder);
}

std::string helpText(const Program& program) {
  auto text = fmt::format("{}: {}\n\nOptions:\n", program.name, program.summary);
  for (const auto& option : program.options) {
    text += fmt::format("  {:<30} {}\n", usageOf(program, option), option.help);
  }
  text += fmt::format("  {:<30} {}\n", "--version", "print the version");
  text += fmt::format("  {:<30} {}\n", "--help", "print this help");
  return text + program.closingHelp;
}

std::optional<Notice> noticeFor(const Program& program, std::span<const char* const> words) {
  for (const std::string_view word : words) {
    if (word == "--help") return Notice{helpText(program)};
    if (word == "--version") {
      return Notice{fmt::format("{} {} (stand-in)\n", program.name, ZEPHYL_VERSION)};
    }
  }
  return std::nullopt;
}

/// Takes one option with its value off the words.
Result<Arguments::value_type> takeOption(const Program& program,
                                         std::span<const char* const>& words) {
  const std::string_view word = words.front();
  words = words.subspan(1);
  const bool isAttached = program.valueForm == ValueForm::attached;
  const auto end = isAttached ? std::min(word.find('='), word.size()) : word.size();
  const auto isMeant = [written = word.substr(0, end)](const Option& option) {
    return written == fmt::format("--{}", option.name);
  };
  const auto option = std::find_if(program.options.begin(), program.options.end(), isMeant);
  if (option == program.options.end()) return Failure{"unknown argument '", word, "'"};
  if (isAttached ? end == word.size() : words.empty()) {
    return Failure{"an option without value, it is ", usageOf(program, *option)};
  }
  std::string value(isAttached ? word.substr(end + 1) : words.front());
  if (!isAttached) words = words.subspan(1);
  if (value.empty()) return Failure{"--", option->name, " is empty"};
  return Arguments::value_type(option->name, std::move(value));
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
    if (!isNew) return Failure{"--", position->first, " is given twice"};
  }
  for (const auto& option : program.options) {
    if (!option.required || arguments.contains(option.name)) continue;
    return Failure{usageOf(program, option), " is missing"};
  }
  return Reading(std::move(arguments));
}

}  // namespace zephyl::sandbox
