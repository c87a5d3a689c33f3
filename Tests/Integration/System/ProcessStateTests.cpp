#include "System/Processes/ProcessState.hpp"

#include <csignal>
#include <functional>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zephyl {
namespace {

/// Returns whether `condition` holds in a child process, whose state it may change.
bool holdsInAProcess(const std::function<bool()>& condition) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(condition() ? 0 : 1);
  int status = -1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

bool isOpen(int descriptor) {
  return ::fcntl(descriptor, F_GETFD) >= 0;
}

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

class ClosedDescriptors : public ::testing::TestWithParam<std::vector<int>> {};

TEST_P(ClosedDescriptors, AreOpenAfterwards) {
  EXPECT_TRUE(holdsInAProcess([] {
    for (const int descriptor : GetParam()) ::close(descriptor);
    establishProcessState();
    return isOpen(0) && isOpen(1) && isOpen(2) && ::open("/dev/null", O_RDONLY) > 2;
  }));
}

INSTANTIATE_TEST_SUITE_P(AllOfThem, ClosedDescriptors,
                         ::testing::Values(std::vector<int>{}, std::vector{0}, std::vector{1},
                                           std::vector{2}, std::vector{0, 2},
                                           std::vector{0, 1, 2}));

TEST(ProcessState, KeepsDescriptorsThatAreOpen) {
  EXPECT_TRUE(holdsInAProcess([] {
    int ends[2];
    if (::pipe(ends) != 0 || ::dup2(ends[1], STDOUT_FILENO) < 0) return false;
    establishProcessState();
    char byte = 0;
    return ::write(STDOUT_FILENO, "x", 1) == 1 && ::read(ends[0], &byte, 1) == 1 && byte == 'x';
  }));
}

TEST(ProcessState, RestoresSIGCHLD) {
  EXPECT_TRUE(holdsInAProcess([] {
    std::signal(SIGCHLD, SIG_IGN);
    establishProcessState();
    return !isIgnored(SIGCHLD) && isIgnored(SIGPIPE);
  }));
}

TEST(ProcessState, KeepsAnIgnoredHangUp) {
  for (const bool ignored : {true, false}) {
    EXPECT_TRUE(holdsInAProcess([ignored] {
      std::signal(SIGHUP, ignored ? SIG_IGN : SIG_DFL);
      establishProcessState();
      return hangUpIsIgnored() == ignored && isIgnored(SIGHUP) == ignored;
    }));
  }
}

TEST(ProcessState, RaisesAndRestoresTheLimitOfDescriptors) {
  EXPECT_TRUE(holdsInAProcess([] {
    const auto softLimit = [] {
      rlimit current{};
      ::getrlimit(RLIMIT_NOFILE, &current);
      return current.rlim_cur;
    };
    const rlimit low{256, 300};
    if (::setrlimit(RLIMIT_NOFILE, &low) != 0) return false;
    restoreDescriptorLimit();
    if (softLimit() != 256) return false;  // nothing was changed yet
    establishProcessState();
    if (softLimit() != 300) return false;
    restoreDescriptorLimit();
    return softLimit() == 256;
  }));
}

}  // namespace
}  // namespace zephyl
