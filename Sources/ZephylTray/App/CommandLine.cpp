#include "ZephylTray/App/CommandLine.hpp"

#include <sstream>

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/variables_map.hpp>

#include "ZephylTray/Commands/Client/CommandArguments.hpp"

namespace zephyl {

namespace options = boost::program_options;

namespace {

options::options_description description() {
  options::options_description all("Options");
  auto add = all.add_options();
  add("desktop", "show a status item in the desktop's panel (the default)");
  add("terminal", "show the menu in this terminal");
  add("headless", "show nothing; write the state to standard error");
  add("version", "print the version and exit");
  add("help", "print this help and exit");
  return all;
}

std::string help() {
  std::ostringstream text;
  text << "Usage: zephyl-tray [--desktop | --terminal | --headless]\n"
          "       zephyl-tray COMMAND [ARGUMENT...]\n\n"
          "Keeps this workstation connected to its Zephyl servers: starts and watches the agent\n"
          "that shares project folders, and shows what it does. A command asks the tray that "
          "runs.\n\n"
       << description() << "\n"
       << CommandArguments::summary() << "\n'zephyl-tray COMMAND --help' describes one.\n";
  return text.str();
}

options::variables_map parsed(int argc, const char* const* argv) {
  using style = options::command_line_style::style_t;
  options::variables_map values;
  const options::options_description all = description();
  options::store(options::command_line_parser(argc, argv)
                     .options(all)
                     .positional({})
                     .style(style::unix_style & ~style::allow_guessing)
                     .run(),
                 values);
  return values;
}

}  // namespace

Result<CommandLine> CommandLine::parse(int argc, const char* const* argv) {
  try {
    const auto values = parsed(argc, argv);
    if (values.contains("help")) return CommandLine{.answer = help()};
    if (values.contains("version"))
      return CommandLine{.answer = "zephyl-tray " ZEPHYL_VERSION "\n"};
    const bool terminal = values.contains("terminal");
    const bool headless = values.contains("headless");
    if (values.count("desktop") + values.count("terminal") + values.count("headless") > 1) {
      return Error{"--desktop, --terminal and --headless exclude each other"};
    }
    return CommandLine{.mode = terminal   ? Mode::terminal
                               : headless ? Mode::headless
                                          : Mode::desktop};
  } catch (const options::error& error) {
    return Error{error.what()};
  }
}

}  // namespace zephyl
