#include "System/Processes/ProcessState.hpp"

#include <cerrno>
#include <csignal>
#include <initializer_list>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace zephyl {

namespace {

/// Written once, before any thread starts.
struct Inherited {
  bool isKnown = false;
  rlimit descriptors{};
};
Inherited inherited;

bool isOpen(int descriptor) {
  return ::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF;
}

/// Opens each missing descriptor. `open` returns the lowest free number, so it is the missing one.
void openStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (!isOpen(descriptor) && ::open("/dev/null", O_RDWR) < 0) return;
  }
}

void resetSignalActions() {
  std::signal(SIGCHLD, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
}

void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  inherited = {.isKnown = true, .descriptors = limit};
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void establishProcessState() {
  openStandardDescriptors();
  resetSignalActions();
  raiseDescriptorLimit();
}

bool hangUpIsIgnored() {
  struct sigaction action {};
  return ::sigaction(SIGHUP, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void restoreDescriptorLimit() {
  if (inherited.isKnown) ::setrlimit(RLIMIT_NOFILE, &inherited.descriptors);
}

}  // namespace zephyl
