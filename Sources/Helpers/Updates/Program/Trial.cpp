#include "Helpers/Updates/Program/Trial.hpp"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

using namespace std::chrono_literals;

constexpr auto startTimeout = 10s;
constexpr auto terminationGrace = 8s;  // the tray's own shutdown may take that long
constexpr auto watchInterval = 50ms;

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// Starts a program without this process's input and output. Returns 0 on failure.
pid_t spawnSilently(std::vector<std::string> arguments) {
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&actions, standard, "/dev/null", O_RDWR, 0);
  }
  const auto pointers = pointersTo(arguments);
  pid_t child = 0;
  const int failure =
      ::posix_spawn(&child, arguments.front().c_str(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return failure == 0 ? child : 0;
}

int reap(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

}  // namespace

Result<void> checkItStarts(const std::string& executable) {
  const pid_t child = spawnSilently({executable, "--version"});
  if (child == 0) return Error{"The new version cannot be started on this machine."};
  const WatchedProcess process(child);
  if (!process.waitForEnd(startTimeout)) ::kill(child, SIGKILL);
  const int status = reap(child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  return Error{"The new version does not work on this machine."};
}

WatchedProcess::WatchedProcess(pid_t pid)
    : id_(pid), process_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

bool WatchedProcess::waitForEnd(std::chrono::milliseconds limit) const {
  if (!process_) return true;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd poll{.fd = process_.get(), .events = POLLIN, .revents = 0};
    if (::poll(&poll, 1, static_cast<int>(std::max(left, 0ms).count())) > 0) return true;
    if (left <= 0ms) return false;
  }
}

void WatchedProcess::end() const {
  for (const int signal : {SIGTERM, SIGKILL}) {
    if (waitForEnd(0ms)) return;
    ::syscall(SYS_pidfd_send_signal, process_.get(), signal, nullptr, 0);
    if (waitForEnd(terminationGrace)) return;
  }
}

TrialOutcome outcomeOfTrial(const std::string& prefix, const WatchedProcess& process,
                            std::chrono::seconds limit) {
  const std::string path = UpdateFiles::of(prefix).trial;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (fileExists(path) && std::chrono::steady_clock::now() < deadline) {
    if (process.waitForEnd(watchInterval)) break;
  }
  const auto marker = readMarker(path);
  if (!fileExists(path))
    return TrialOutcome::confirmed;  // checked last, because it may have been removed meanwhile
  // The marker contains the process id, because the next start may have changed the marker already.
  const bool wasRequested = marker && marker->endedProcess == process.id();
  return wasRequested ? TrialOutcome::suspended : TrialOutcome::failed;
}

Error becomeProgram(const std::string& executable, const std::vector<std::string>& arguments) {
  std::vector<std::string> all{executable};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const auto pointers = pointersTo(all);
  ::execv(executable.c_str(), pointers.data());
  return systemError(executable, errno);
}

}  // namespace zephyl
