#include "Helpers/Updates/Client/TrialStart.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Helpers/Updates/Client/ProcessUpdater.hpp"
#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

using std::chrono::steady_clock;

/// Starts a program with a descriptor as its input, without blocked signals, as the leader of a
/// process group. Returns 0 on failure.
pid_t spawnReading(const std::string& program, const FileDescriptor& input) {
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.get(), STDIN_FILENO);
  posix_spawnattr_t attributes{};
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  std::string name = program;
  const std::array<char*, 2> arguments = {name.data(), nullptr};
  pid_t child = 0;
  const int failure =
      ::posix_spawn(&child, program.c_str(), &actions, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return failure == 0 ? child : 0;
}

/// Waits for the end of a child until `deadline`. Returns whether it has ended.
bool endsInTime(pid_t child, steady_clock::time_point deadline) {
  using std::chrono::milliseconds;
  const FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  pollfd poll{.fd = process.get(), .events = POLLIN, .revents = 0};
  if (!process) return false;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    const int count = ::poll(&poll, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (count >= 0 || errno != EINTR) return count > 0;
  }
}

/// Runs an updater program until `deadline` at most. Returns whether it reports success.
bool runUpdater(const std::string& program, const UpdateCommand& command,
                steady_clock::time_point deadline) {
  std::array<int, 2> ends{};
  if (!isExecutableFile(program) || ::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  const FileDescriptor input(ends[0]);
  FileDescriptor output(ends[1]);
  const std::string line = json::compact(json::encode(command)) + "\n";
  // The line fits into the pipe's buffer, so the write does not block.
  if (::write(output.get(), line.data(), line.size()) < 0) return false;
  output.reset();
  const pid_t child = spawnReading(program, input);
  if (child == 0) return false;
  if (!endsInTime(child, deadline)) {
    log("{} did not end in time; killing it", program);
    ::kill(-child, SIGKILL);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Returns whether another version is installed now, regardless of the updater programs' reports.
bool rollBack(const Bundle& bundle, const UpdateFiles& files, const std::string& onTrial) {
  const UpdateCommand command = RollBackCommand{.prefix = files.prefix};
  const auto deadline = steady_clock::now() + trialStartTimeout;
  // The previous version is in `staged` if the exchange was interrupted.
  const std::array<Bundle, 3> bundles = {Bundle(joinPath(files.previous, "bin/zephyl-tray")),
                                         Bundle(joinPath(files.staged, "bin/zephyl-tray")), bundle};
  for (const Bundle& each : bundles) {
    if (steady_clock::now() >= deadline) break;
    static_cast<void>(runUpdater(updaterProgram(each), command, deadline));
    if (installedVersion(bundle) != onTrial) return true;
  }
  return false;
}

/// Returns the files of updates, or nullopt and logs the reason if they must not be trusted.
std::optional<UpdateFiles> filesOfUpdates(const std::string& prefix) {
  if (prefix.empty()) return std::nullopt;
  if (const auto reason = UpdateFiles::of(prefix).reasonForDistrust()) {
    log("ignoring the state directory of updates: {}", *reason);
    return std::nullopt;
  }
  return UpdateFiles::trusted(prefix);
}

void countStart(const UpdateFiles& files, UpdateMarker marker) {
  ++marker.starts;
  if (const auto written = writeMarker(files.trial, marker); !written) {
    log("could not count the start of version {}: {}", marker.displayVersion,
        written.error().message);
  }
}

/// Removes the marker of an interrupted installation or rollback, which names a version that is not
/// installed. A running updater holds the lock and may be about to install that version.
void removeStaleMarker(const UpdateFiles& files, const Bundle& bundle) {
  const FileDescriptor lock(
      ::open(files.lock.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!lock || ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return;
  const auto marker = readMarker(files.trial);
  if (marker && marker->version != installedVersion(bundle)) {
    static_cast<void>(removePath(files.trial));
  }
}

}  // namespace

bool rollBackIfUnconfirmed(const Bundle& bundle) {
  const auto files = filesOfUpdates(installationPrefix(bundle));
  if (!files) return false;
  if (removeUndecodableMarker(files->trial)) log("removed {}: it is damaged", files->trial);
  const auto marker = readMarker(files->trial);
  if (!marker) return false;
  if (marker->version != installedVersion(bundle)) {
    removeStaleMarker(*files, bundle);
    return false;
  }
  if (marker->starts < maxTrialStarts) {
    countStart(*files, *marker);
    return false;
  }
  log("version {} failed to start {} times; rolling back to the previous version",
      marker->displayVersion, marker->starts);
  if (rollBack(bundle, *files, marker->version)) return true;
  log("could not roll back to the previous version");
  return false;
}

void recordRequestedEnd(const Bundle& bundle, Duration ran) {
  const auto files = UpdateFiles::trusted(installationPrefix(bundle));
  if (!files) return;
  auto marker = readMarker(files->trial);
  if (!marker || marker->version != installedVersion(bundle)) return;
  marker->endedProcess = ::getpid();
  if (ran < confirmationTimeout && marker->starts > 0) --marker->starts;
  log("ended before version {} was confirmed; the next start continues its trial",
      marker->displayVersion);
  if (const auto written = writeMarker(files->trial, *marker); !written) {
    log("could not record the requested end: {}", written.error().message);
  }
}

bool isUpdateUnconfirmed(const Bundle& bundle) {
  const auto files = UpdateFiles::trusted(installationPrefix(bundle));
  return files && readMarker(files->trial);
}

std::string installedVersion(const Bundle& bundle) {
  if (auto version = bundle.information("CFBundleVersion")) return *version;
  return bundle.information("CFBundleShortVersionString").value_or("");
}

std::string runningVersion(const Bundle& bundle) {
  const std::string version = installedVersion(bundle);
  // Compared after the version was read, so that the version is that of the compared file.
  const bool isInstalled = isSameFile("/proc/self/exe", bundle.executable().value_or(""));
  return isInstalled ? version : std::string();
}

}  // namespace zephyl
