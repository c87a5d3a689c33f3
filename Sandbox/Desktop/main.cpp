#include <csignal>
#include <exception>
#include <span>
#include <utility>

#include "Common/Program.hpp"
#include "Desktop/Command/Commands.hpp"
#include "Desktop/Window/WindowService.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr auto programName = "zephyl-desktop";

int runWindow(TrayAccess access) {
  // A client or a reader of the log that has gone away is an error of that write alone.
  std::signal(SIGPIPE, SIG_IGN);
  WindowService service(std::move(access));
  const auto started = service.start();
  if (!started) return reportFailure(programName, started.error().message);
  service.run();
  return 0;
}

int run(const char* program, std::span<const char* const> words) try {
  auto access = takeTrayAccess();
  if (!words.empty()) return runCommand(program, words);
  if (!access) return reportFailure(programName, access.error().message);
  return *access ? runWindow(**std::move(access)) : runCommand(program, words);
} catch (const std::exception& error) {
  return reportFailure(programName, error.what());
}

}  // namespace
}  // namespace zephyl::sandbox::desktop

int main(int argc, char** argv) {
  return zephyl::sandbox::desktop::run(argc > 0 ? argv[0] : "zephyl-desktop",
                                       std::span(argv, argc).subspan(argc > 0 ? 1 : 0));
}
