#include "System/Concurrency/EndSignals.hpp"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <future>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include "System/Concurrency/Reactor.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

constexpr std::array<int, 2> signals = {SIGTERM, SIGINT};

/// Runs `work` in a child process, whose signal mask it may change. Returns the result of `work`,
/// or 128 plus the number of the signal that ended the process.
template <typename Work>
int inAProcess(Work work) {
  const pid_t process = ::fork();
  if (process == 0) ::_exit(work());
  int status = 0;
  ::waitpid(process, &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/// Returns whether a new EndSignals reports a signal.
bool arrives() {
  Reactor reactor;
  std::promise<void> arrived;
  const EndSignals watch(reactor, signals, [&] { arrived.set_value(); });
  return arrived.get_future().wait_for(10s) == std::future_status::ready;
}

TEST(EndSignals, StayPendingUntilTheyAreRead) {
  EXPECT_EQ(inAProcess([] {
              EndSignals::block(signals);
              if (EndSignals::arePending()) return 1;
              ::kill(::getpid(), SIGTERM);
              if (!EndSignals::arePending()) return 2;
              if (!arrives()) return 3;
              return EndSignals::arePending() ? 4 : 0;
            }),
            0);
}

TEST(EndSignals, NoOtherSignalStaysBlocked) {
  EXPECT_EQ(inAProcess([] {
              sigset_t mask;
              ::sigfillset(&mask);
              ::sigprocmask(SIG_SETMASK, &mask, nullptr);
              EndSignals::block(signals);
              ::sigprocmask(SIG_BLOCK, nullptr, &mask);
              if (::sigismember(&mask, SIGHUP) != 0 || ::sigismember(&mask, SIGCHLD) != 0) return 1;
              return ::sigismember(&mask, SIGTERM) != 0 ? 0 : 2;
            }),
            0);
}

TEST(EndSignals, ArriveWhileTheyAreRead) {
  EXPECT_EQ(inAProcess([] {
              EndSignals::block(signals);
              Reactor reactor;
              std::array<std::promise<void>, 2> arrived;
              std::size_t count = 0;
              const EndSignals watch(reactor, signals, [&] { arrived.at(count++).set_value(); });
              for (const std::size_t number : {0U, 1U}) {
                ::kill(::getpid(), signals.at(number));
                const auto future = arrived.at(number).get_future();
                if (future.wait_for(10s) != std::future_status::ready) return 1;
              }
              return 0;
            }),
            0);
}

TEST(EndSignals, StayPendingAcrossAnExec) {
  EXPECT_EQ(inAProcess([] {
              EndSignals::block(signals);
              ::kill(::getpid(), SIGTERM);
              ::execl("/bin/sh", "sh", "-c", "exit 7", nullptr);
              return 1;
            }),
            7);
}

TEST(EndSignals, EndAProcessThatUnblocksThem) {
  EXPECT_EQ(inAProcess([] {
              EndSignals::block(signals);
              ::kill(::getpid(), SIGTERM);
              EndSignals::block({});
              return 0;
            }),
            128 + SIGTERM);
}

}  // namespace
}  // namespace zephyl
