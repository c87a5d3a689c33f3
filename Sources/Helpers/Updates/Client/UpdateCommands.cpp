#include "Helpers/Updates/Client/UpdateCommands.hpp"

#include <utility>

#include <unistd.h>

#include "Helpers/Updates/Client/ProcessUpdater.hpp"
#include "Helpers/Updates/Client/TrialStart.hpp"
#include "Helpers/Updates/Client/Updater.hpp"
#include "Helpers/Updates/Client/UpdaterProcess.hpp"
#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

/// Prefers the updater of the previous version, which is known to work. The one in the installation
/// belongs to the unconfirmed version.
std::string watcherProgram(const UpdateSetup& setup) {
  const auto files = UpdateFiles::trusted(setup.prefix);
  if (!files) return setup.program;
  std::string previous = updaterProgram(Bundle(joinPath(files->previous, "bin/zephyl-tray")));
  return isExecutableFile(previous) ? previous : setup.program;
}

}  // namespace

CheckCommand checkCommand(const UpdateSetup& setup, bool isUserInitiated) {
  CheckCommand command{.prefix = setup.prefix,
                       .channels = setup.settings.channels(),
                       .rolloutGroup = setup.settings.rolloutGroup(setup.random),
                       .userInitiated = isUserInitiated};
  if (const auto newest = setup.settings.newestFeedDate(Updater::feedAddress())) {
    command.newestFeedDate = newest->time_since_epoch().count();
  }
  if (isUserInitiated) return command;
  if (auto skipped = setup.settings.skippedVersion()) command.skip.push_back(std::move(*skipped));
  const auto files = UpdateFiles::trusted(setup.prefix);
  if (const auto failed = files ? readMarker(files->failed) : std::nullopt) {
    command.failed = FailedVersion{failed->version, failed->feedDate.value_or(0)};
  }
  return command;
}

std::optional<std::chrono::sys_seconds> feedDateOf(const UpdateReport& check) {
  using std::chrono::seconds;
  using std::chrono::sys_seconds;
  if (const auto* found = std::get_if<UpdateFound>(&check)) {
    return sys_seconds(seconds(found->feedDate));
  }
  if (const auto* upToDate = std::get_if<UpToDate>(&check)) {
    return sys_seconds(seconds(upToDate->feedDate));
  }
  return std::nullopt;
}

std::string failureOf(const UpdateReport& report) {
  const auto* const failed = std::get_if<UpdateFailed>(&report);
  return failed == nullptr ? "The updater sent an unexpected report." : failed->value;
}

void watchRelaunch(ProcessLauncher& launcher, const UpdateSetup& setup) {
  // Its output is that of the tray, because it may have to become the tray.
  auto child = launcher.launch(updaterOptions(watcherProgram(setup)));
  if (!child) {
    return log("could not start the program that watches the restart: {}", child.error().message);
  }
  const UpdateCommand command = WatchCommand{.prefix = setup.prefix,
                                             .process = ::getpid(),
                                             .arguments = setup.arguments,
                                             .limitSeconds = confirmationTimeout.count()};
  (*child)->write(json::compact(json::encode(command)));
}

}  // namespace zephyl
