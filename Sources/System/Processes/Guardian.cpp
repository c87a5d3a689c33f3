#include "System/Processes/Guardian.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace zephyl {

namespace {

using namespace std::chrono_literals;

constexpr auto grace = 1s;           // from SIGTERM to SIGKILL
constexpr auto pollInterval = 20ms;  // between checks whether the groups have ended
constexpr pid_t noGroup = 0;         // an empty entry of the table
constexpr pid_t smallestGroup = 2;   // kill(-1) would reach every process
constexpr const char* processName = "zephyl-guardian";  // 15 characters, the longest possible name

}  // namespace

/// Shared between the tray, its forked children and the guardian.
struct Guardian::Groups {
  std::array<std::atomic<pid_t>, maxGroups> entries{};

  /// Sends `signal` to every group. Returns whether any group still exists. Removes groups that do
  /// not exist, because their ids may be reused.
  bool signalAll(int signal) {
    bool found = false;
    for (auto& entry : entries) {
      const pid_t group = entry.load();
      if (group == noGroup) continue;
      if (::kill(-group, signal) == 0) {
        found = true;
      } else {
        entry.store(noGroup);
      }
    }
    return found;
  }

  void end() {
    bool left = signalAll(SIGTERM);
    for (auto waited = 0ms; left && waited < grace; waited += pollInterval) {
      std::this_thread::sleep_for(pollInterval);
      left = signalAll(0);
    }
    if (left) signalAll(SIGKILL);
  }
};

static_assert(std::atomic<pid_t>::is_always_lock_free, "the table is shared between processes");

void Guardian::Unmap::operator()(Groups* groups) const {
  ::munmap(groups, sizeof(Groups));
}

namespace {

constexpr int guardianPipe = 3;

/// Closes all descriptors of the tray but the pipe, because they would keep a terminal, a log or
/// the tray's own end of the pipe open.
void keepOnly(int pipe) {
  ::dup2(pipe, guardianPipe);
  const int null = ::open("/dev/null", O_RDWR);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, standard);
  ::close_range(guardianPipe + 1, ~0U, 0);
}

/// Waits until no process holds the other end of the pipe open. Ignores what it reads.
void waitForEnd(int pipe) {
  char unused = 0;
  ssize_t count = 0;
  do {
    count = ::read(pipe, &unused, sizeof unused);
  } while (count > 0 || (count < 0 && errno == EINTR));
}

}  // namespace

void Guardian::runGuardian(int pipe, Groups& groups) {
  sigset_t all;
  sigfillset(&all);
  ::sigprocmask(SIG_BLOCK, &all, nullptr);
  ::setsid();
  ::prctl(PR_SET_NAME, processName);
  if (::chdir("/") != 0) {
    // It stays in the working directory of the tray, which does no harm.
  }
  keepOnly(pipe);
  waitForEnd(guardianPipe);
  groups.end();
  ::_exit(0);
}

Result<Guardian> Guardian::start() {
  void* memory =
      ::mmap(nullptr, sizeof(Groups), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return systemError("guardian", errno);
  SharedGroups groups(std::construct_at(static_cast<Groups*>(memory)));
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return systemError("guardian", errno);
  const FileDescriptor readingEnd(ends[0]);
  FileDescriptor writingEnd(ends[1]);
  const pid_t process = ::fork();
  if (process < 0) return systemError("guardian", errno);
  if (process == 0) runGuardian(readingEnd.get(), *groups);
  return Guardian(std::move(writingEnd), process, std::move(groups));
}

Guardian::~Guardian() {
  if (!pipe_) return;
  pipe_.reset();
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

bool Guardian::add(pid_t group) {
  if (group < smallestGroup) return false;
  for (auto& entry : groups_->entries) {
    pid_t expected = noGroup;
    if (entry.compare_exchange_strong(expected, group)) return true;
  }
  return false;
}

void Guardian::remove(pid_t group) {
  for (auto& entry : groups_->entries) {
    pid_t expected = group;
    if (entry.compare_exchange_strong(expected, noGroup)) return;
  }
}

}  // namespace zephyl
