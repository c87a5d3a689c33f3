#include <csignal>
#include <cstdio>
#include <exception>
#include <span>

#include <fmt/format.h>

#include "Desktop/Command/Commands.hpp"
#include "Desktop/Window/TrayAccess.hpp"
#include "Desktop/Window/Window.hpp"

namespace zephyl::sandbox::desktop {
namespace {

int fail(const Failure& failure) {
  fmt::print(stderr, "zephyl-desktop: {}\n", failure.message);
  return 1;
}

int run(const char* program, std::span<const char* const> words) {
  auto access = takeTrayAccess();
  if (!words.empty()) return runCommand(program, words);
  if (!access) return fail(access.error());
  if (!*access) return runCommand(program, words);
  // A client or a reader of the log that goes away is an error of that write, no reason to die.
  std::signal(SIGPIPE, SIG_IGN);
  const auto ended = runWindow(**std::move(access));
  return ended ? 0 : fail(ended.error());
}

}  // namespace
}  // namespace zephyl::sandbox::desktop

int main(int argc, char** argv) {
  try {
    return zephyl::sandbox::desktop::run(argc > 0 ? argv[0] : "zephyl-desktop",
                                         std::span(argv, argc).subspan(argc > 0 ? 1 : 0));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zephyl-desktop: %s\n", error.what());
    return 1;
  }
}
