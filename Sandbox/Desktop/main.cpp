#include <csignal>
#include <exception>
#include <span>
#include <utility>

#include "Common/Program.hpp"
#include "Desktop/Command/Commands.hpp"
#include "Desktop/View/WindowProgram.hpp"
#include "Desktop/Window/WindowService.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr auto programName = "zephyl-desktop";

/// Accepts commands without showing a window.
int runWithoutScreen(TrayAccess access) {
  // Writing to a closed connection or log must only fail, not end the process.
  std::signal(SIGPIPE, SIG_IGN);
  WindowService service(std::move(access));
  const auto started = service.start(WindowService::Polling::everySecond);
  if (!started) return reportFailure(programName, started.error().message);
  service.run();
  return 0;
}

int run(std::span<char*> words) try {
  auto access = takeTrayAccess();
  const char* const program = words.empty() ? programName : words.front();
  const auto rest = words.subspan(words.empty() ? 0 : 1);
  if (!rest.empty()) return runCommand(program, rest);
  if (!access) return reportFailure(programName, access.error().message);
  if (canShowWindow()) {
    return runWindow(static_cast<int>(words.size()), words.data(), *std::move(access));
  }
  return *access ? runWithoutScreen(**std::move(access)) : runCommand(program, {});
} catch (const std::exception& error) {
  return reportFailure(programName, error.what());
}

}  // namespace
}  // namespace zephyl::sandbox::desktop

int main(int argc, char** argv) {
  return zephyl::sandbox::desktop::run(std::span(argv, argc));
}
