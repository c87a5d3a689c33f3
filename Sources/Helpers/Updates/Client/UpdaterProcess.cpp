#include "Helpers/Updates/Client/UpdaterProcess.hpp"

#include <functional>
#include <utility>

namespace zephyl {

namespace {

/// Large enough for release notes with every character escaped.
constexpr std::size_t maxReportBytes = 64UL * 1024;

}  // namespace

std::unique_ptr<UpdaterProcess> startUpdater(
    MainLoop& mainLoop, ProcessLauncher& launcher, const std::string& program,
    const UpdateCommand& command, const std::function<void(const UpdateReport&)>& report) {
  HelperOptions options{.name = "zephyl-tray-updater", .process = updaterOptions(program)};
  options.process.maxLineBytes = maxReportBytes;
  const auto fail = [report](const std::string& reason) {
    report(UpdateFailed{"The updater cannot be used: " + reason + "."});
  };
  return std::make_unique<UpdaterProcess>(
      mainLoop, launcher, std::move(options), command,
      UpdaterProcess::Events{.reported = report, .failed = fail, .ended = fail});
}

ProcessOptions updaterOptions(const std::string& program) {
  ProcessOptions options;
  options.executable = program;
  options.environment = currentEnvironment();
  options.lifetime = ProcessOptions::Lifetime::independent;
  options.hasInput = true;
  return options;
}

}  // namespace zephyl
