#include "ZephylTray/TrialStart.hpp"

#include <array>
#include <cerrno>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "System/Bundle.hpp"
#include "System/FileDescriptor.hpp"
#include "System/Files.hpp"
#include "System/JSON.hpp"
#include "System/Log.hpp"
#include "UpdateMessages/UpdateFiles.hpp"
#include "UpdateMessages/UpdateMessages.hpp"
#include "ZephylTray/UpdaterHelper.hpp"

namespace zephyl {

namespace {

/// As versions are compared.
std::string versionOf(const Bundle& bundle) {
  if (auto version = bundle.information("CFBundleVersion")) return *version;
  return bundle.information("CFBundleShortVersionString").value_or("");
}

/// Starts a program with a descriptor as its input; 0 when it cannot be started.
pid_t spawnReading(const std::string& program, const FileDescriptor& input) {
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.get(), STDIN_FILENO);
  std::string name = program;
  const std::array<char*, 2> arguments = {name.data(), nullptr};
  pid_t child = 0;
  const int failure =
      ::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return failure == 0 ? child : 0;
}

/// Runs an updater program; whether it did what it was told.
bool runUpdater(const std::string& program, const UpdateCommand& command) {
  std::array<int, 2> ends{};
  if (!isExecutableFile(program) || ::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  const FileDescriptor input(ends[0]);
  FileDescriptor output(ends[1]);
  const std::string line = json::compact(json::encode(command)) + "\n";
  // It fits into the pipe, so that this does not wait for a reader.
  if (::write(output.get(), line.data(), line.size()) < 0) return false;
  output.reset();
  const pid_t child = spawnReading(program, input);
  if (child == 0) return false;
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Whether another version stands in place of the one on trial, whatever a program says of itself.
bool takeBackVersion(const Bundle& bundle, const UpdateFiles& files, const std::string& onTrial) {
  const UpdateCommand command{.takeBack = TakeBackCommand{.prefix = files.prefix}};
  // The previous version lies in one of the first two, where an exchange was cut off.
  for (const auto& place : {files.previous, files.staged}) {
    const Bundle previous(joinPath(place, "bin/zephyl-tray"));
    if (runUpdater(updaterProgram(previous), command)) return true;
  }
  return runUpdater(updaterProgram(bundle), command) || versionOf(bundle) != onTrial;
}

}  // namespace

bool returnsToPreviousVersion(const Bundle& bundle) {
  const std::string prefix = installationPrefix(bundle);
  if (prefix.empty()) return false;
  const auto files = UpdateFiles::of(prefix);
  auto note = readNote(files.trial);
  if (!note || note->version != versionOf(bundle)) return false;
  if (note->starts < maxTrialStarts) {
    ++note->starts;
    if (const auto written = writeNote(files.trial, *note); !written) {
      log("could not count the start of a version on trial: {}", written.error().message);
    }
    return false;
  }
  log("version {} was started {} times and never came up; returning to the version before",
      note->displayVersion, note->starts);
  if (takeBackVersion(bundle, files, note->version)) return true;
  log("could not return to the version before");
  return false;
}

}  // namespace zephyl
