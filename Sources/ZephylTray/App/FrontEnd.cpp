#include "ZephylTray/App/FrontEnd.hpp"

#include <optional>
#include <utility>

#include "Desktop/Freedesktop/FreedesktopDesktop.hpp"
#include "Desktop/Headless/HeadlessDesktop.hpp"
#include "Desktop/Headless/HeadlessDialogs.hpp"
#include "Desktop/Terminal/TerminalDesktop.hpp"
#include "Desktop/Terminal/TerminalDialogs.hpp"
#include "Helpers/Dialogs/Client/ProcessDialogs.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

FrontEnd onDesktop(const Runtime& runtime, std::string activationToken) {
  auto desktop = std::make_unique<FreedesktopDesktop>(
      FreedesktopDesktop::Services{runtime.mainLoop, runtime.clock, runtime.launcher},
      std::move(activationToken));
  auto dialogs = std::make_unique<ProcessDialogs>(
      runtime.mainLoop, runtime.clock, runtime.launcher, dialogsProgram(Bundle::main()),
      [&desktop = *desktop] { return desktop.consumeActivationToken(); });
  return {.desktop = std::move(desktop), .dialogs = std::move(dialogs)};
}

FrontEnd withoutDesktop(const Runtime& runtime) {
  return {.desktop = std::make_unique<HeadlessDesktop>(runtime.mainLoop, runtime.clock),
          .dialogs = std::make_unique<HeadlessDialogs>(runtime.mainLoop)};
}

FrontEnd inTerminal(const Runtime& runtime) {
  auto desktop = TerminalDesktop::open({runtime.mainLoop, runtime.clock, runtime.reactor});
  if (!desktop) {
    log("{}; running as with --headless", desktop.error().message);
    return withoutDesktop(runtime);
  }
  auto dialogs = std::make_unique<TerminalDialogs>(runtime.mainLoop, (*desktop)->screen());
  return {.desktop = *std::move(desktop), .dialogs = std::move(dialogs), .endsAtHangUp = false};
}

}  // namespace

FrontEnd FrontEnd::make(CommandLine::Mode mode, const Runtime& runtime,
                        std::string activationToken) {
  switch (mode) {
    case CommandLine::Mode::desktop:
      return onDesktop(runtime, std::move(activationToken));
    case CommandLine::Mode::terminal:
      return inTerminal(runtime);
    case CommandLine::Mode::headless:
      break;
  }
  return withoutDesktop(runtime);
}

}  // namespace zephyl
