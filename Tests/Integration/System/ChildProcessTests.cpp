#include "System/Processes/ChildProcess.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <mutex>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "ChildProcessTest.hpp"
#include "Support/Eventually.hpp"
#include "Support/Processes.hpp"
#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::exited;
using test::hasEnded;
using test::program;
using test::script;
using test::signalled;
using Lines = std::vector<std::string>;

TEST_F(ChildProcessTest, ReportsTheExitStatus) {
  const Child child = launchWatched(script("exit 3"));
  EXPECT_EQ(witness_.waitForExit(), exited(3));
  EXPECT_TRUE(witness_.waitForExit().isFailure());
  EXPECT_FALSE(child->isRunning());
}

TEST_F(ChildProcessTest, ReportsTheSignalThatEndedIt) {
  launchWatched(script("kill -KILL $$"));
  EXPECT_EQ(witness_.waitForExit(), signalled(SIGKILL));
  EXPECT_FALSE(witness_.waitForExit().isFailure());
}

TEST_F(ChildProcessTest, ReportsWhyAProgramCannotBeStarted) {
  const auto missing = launcher_.launch(program("/nonexistent/program"));
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().message, "/nonexistent/program: No such file or directory");

  const test::TemporaryDirectory directory;
  const std::string text = directory.write("text", "no program");
  const auto plain = launcher_.launch(program(text));
  ASSERT_FALSE(plain);
  EXPECT_EQ(plain.error().message, text + ": Permission denied");
}

TEST_F(ChildProcessTest, ReportsWhyAWorkingDirectoryCannotBeEntered) {
  ProcessOptions options = script("exit 0");
  options.workingDirectory = "/nonexistent/directory";
  const auto child = launcher_.launch(std::move(options));
  ASSERT_FALSE(child);
  EXPECT_EQ(child.error().message, "/nonexistent/directory: No such file or directory");
}

TEST_F(ChildProcessTest, CallsNoCallbackIfTheProgramWasNotStarted) {
  std::atomic<bool> called = false;
  ProcessOptions options = program("/nonexistent/program");
  options.onExit = [&](ExitStatus) { called = true; };
  EXPECT_FALSE(launcher_.launch(std::move(options)));
  settle();
  EXPECT_FALSE(called);
}

TEST_F(ChildProcessTest, RunsTheProgramWhenLaunchReturns) {
  const Child child = launch(program("/bin/sleep", {"1000"}));
  EXPECT_EQ(test::processState(child->pid())->name, "sleep");
  EXPECT_TRUE(child->isRunning());
  child->killGroup();
  EXPECT_TRUE(child->waitForExit(deadline));
}

TEST_F(ChildProcessTest, CanBeLaunchedFromTheReactorItself) {
  reactor_.run([&] { launchWatched(script("echo here")); });
  EXPECT_EQ(witness_.linesAtEnd(), Lines{"here"});
}

TEST_F(ChildProcessTest, JoinsOutputThatIsWrittenInPieces) {
  launchWatched(script(R"(for piece in he ll o; do printf %s $piece; done; echo
                          printf '\303'; printf '\274\n')"));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"hello", "\xC3\xBC"}));
}

TEST_F(ChildProcessTest, DeliversStandardErrorInOrderWithStandardOutput) {
  launchWatched(script("echo one; echo two >&2; echo three"));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"one", "two", "three"}));
}

TEST_F(ChildProcessTest, FlushesAnUnterminatedLineAtItsEnd) {
  launchWatched(script("echo line; printf tail"));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"line", "tail"}));
}

TEST_F(ChildProcessTest, MayCloseItsOutputAndContinue) {
  const Child child = launchWatched(script("echo bye; exec >/dev/null 2>&1; exec sleep 1000"));
  witness_.waitForLines(1);
  EXPECT_TRUE(eventually([&] { return test::processState(child->pid())->name == "sleep"; }));
  EXPECT_TRUE(child->isRunning());
  child->terminate();
  EXPECT_EQ(witness_.waitForExit(), signalled(SIGTERM));
}

TEST_F(ChildProcessTest, GetsExactlyTheGivenEnvironment) {
  const test::ScopedVariable mine("ZEPHYL_TEST_MINE", "not inherited");
  ProcessOptions options = program("/usr/bin/env");
  options.environment = {{"A", "1"}, {"B", "two words"}, {"EMPTY", ""}};
  launchWatched(std::move(options));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"A=1", "B=two words", "EMPTY="}));
}

TEST_F(ChildProcessTest, GetsItsArgumentsUnchanged) {
  launchWatched(program("/usr/bin/printf", {"%s\n", "it's", "$HOME", "two words"}));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"it's", "$HOME", "two words"}));
}

TEST_F(ChildProcessTest, RunsInItsWorkingDirectory) {
  const test::TemporaryDirectory directory;
  directory.write("tool", "#!/bin/sh\npwd -P\n", true);
  ProcessOptions options = program("./tool");
  options.workingDirectory = directory.path();
  launchWatched(std::move(options));
  EXPECT_EQ(witness_.linesAtEnd(), Lines{directory.path()});
}

TEST_F(ChildProcessTest, ReadsNothingFromStandardInput) {
  launchWatched(script("readlink /proc/self/fd/0; wc -c"));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"/dev/null", "0"}));
}

TEST_F(ChildProcessTest, ReadsItsInput) {
  ProcessOptions options = script("cat; echo end");
  options.hasInput = true;
  const Child child = launchWatched(std::move(options));
  child->write("one");
  child->write("two");
  witness_.waitForLines(2);
  child->write("three");
  child->closeInput();
  child->write("nothing follows the end");
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"one", "two", "three", "end"}));
}

TEST_F(ChildProcessTest, GetsALineLargerThanThePipe) {
  ProcessOptions options = script("wc -c");
  options.hasInput = true;
  const Child child = launchWatched(std::move(options));
  child->write(std::string(3'000'000, 'x'));
  child->closeInput();
  EXPECT_EQ(witness_.linesAtEnd(), Lines{"3000001"});
}

TEST_F(ChildProcessTest, DoesNotBlockTheWriterByNotReading) {
  ProcessOptions options = program("/bin/sleep", {"1000"});
  options.hasInput = true;
  const Child child = launchWatched(std::move(options));
  for (int i = 0; i < 100; ++i) child->write(std::string(100'000, 'x'));
  reactor_.run([] {});
  child->killGroup();
  EXPECT_EQ(witness_.waitForExit(), signalled(SIGKILL));
  child->write("to nobody");
}

TEST_F(ChildProcessTest, MayCloseItsInputAndContinue) {
  ProcessOptions options = script("exec </dev/null; echo closed; exec sleep 1000");
  options.hasInput = true;
  const Child child = launchWatched(std::move(options));
  witness_.waitForLines(1);
  child->write("to nobody");
  settle();
  child->write("to nobody");
  settle();
  EXPECT_TRUE(child->isRunning());
  child->killGroup();
  EXPECT_EQ(witness_.waitForExit(), signalled(SIGKILL));
}

TEST_F(ChildProcessTest, SeparatesStandardErrorIfRequested) {
  test::ChildWitness errors;
  ProcessOptions options = script("echo one; echo two >&2; echo three; printf four >&2");
  errors.attachTo(options);
  options.onErrorOutput = std::move(options.onOutput);
  launchWatched(std::move(options));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"one", "three"}));
  EXPECT_EQ(errors.waitForLines(2), (Lines{"two", "four"}));
}

TEST_F(ChildProcessTest, HasItsLinesCutAtTheGivenLimit) {
  ProcessOptions options = script("head -c 10000 /dev/zero | tr '\\0' x; echo");
  options.maxLineBytes = 9000;
  launchWatched(std::move(options));
  EXPECT_EQ(witness_.linesAtEnd(), Lines{std::string(9000, 'x')});
}

TEST_F(ChildProcessTest, InheritsNoDescriptorNotEvenWithoutCloseOnExec) {
  const int careless = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(::dup2(careless, 100), 0);
  const Child other = launch(program("/bin/sleep", {"1000"}));
  launchWatched(program("/bin/ls", {"/proc/self/fd"}));
  EXPECT_EQ(witness_.linesAtEnd(), (Lines{"0", "1", "2", "3"}));  // 3 belongs to the listing
  other->killGroup();
  EXPECT_TRUE(other->waitForExit(deadline));
  ::close(careless);
  ::close(100);
}

TEST_F(ChildProcessTest, StartsWithTheDefaultSignals) {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  reactor_.run([&] { ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr); });
  launchWatched(program("/bin/grep", {"-E", "^Sig(Blk|Ign):", "/proc/self/status"}));
  EXPECT_EQ(witness_.linesAtEnd(),
            (Lines{"SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000"}));
}

TEST_F(ChildProcessTest, LeadsAProcessGroupInTheSessionOfTheTray) {
  const Child child = launch(program("/bin/sleep", {"1000"}));
  const auto state = test::processState(child->pid());
  EXPECT_EQ(state->group, child->pid());
  EXPECT_EQ(state->session, ::getsid(0));
  child->killGroup();
  EXPECT_TRUE(child->waitForExit(deadline));
}

TEST_F(ChildProcessTest, EndsItsGrandchildrenWithItself) {
  launchWatched(script("trap '' TERM; sleep 1000 & echo $!"));
  EXPECT_EQ(witness_.waitForExit(), exited(0));  // even though the grandchild held the pipe
  const pid_t grandchild = std::stoi(witness_.waitForLines(1).at(0));
  EXPECT_TRUE(eventually([&] { return hasEnded(grandchild); }));
}

TEST_F(ChildProcessTest, LeavesItsGroupTheRestOfTheGracePeriod) {
  const Child child = launchWatched(script(R"(
      sh -c 'trap "sleep 0.5; echo saved; exit" TERM; echo ready; while :; do :; done' &
      wait)"));
  witness_.waitForLines(1);
  child->terminateGroup();
  EXPECT_EQ(std::ranges::count(witness_.linesAtEnd(), "saved"), 1);
}

TEST_F(ChildProcessTest, TerminatesTheRestOfItsGroupAfterItsEnd) {
  const Child child = launchWatched(script(R"(
      sh -c 'trap "echo saved; exit" TERM; echo ready; while :; do :; done' & wait)"));
  witness_.waitForLines(1);
  child->terminate();
  EXPECT_EQ(std::ranges::count(witness_.linesAtEnd(), "saved"), 1);
}

TEST_F(ChildProcessTest, KillsTheRestOfItsGroupAfterTheGracePeriod) {
  const Child child = launchWatched(script(R"(
      sh -c 'trap "" TERM; echo $$; while :; do sleep 0.1; done' & wait)"));
  const pid_t stubborn = std::stoi(witness_.waitForLines(1).at(0));
  const auto began = std::chrono::steady_clock::now();
  child->terminateGroup();
  witness_.waitForExit();
  EXPECT_GE(std::chrono::steady_clock::now() - began, ChildProcess::terminationGrace - 100ms);
  EXPECT_TRUE(eventually([&] { return hasEnded(stubborn); }));
}

TEST_F(ChildProcessTest, IsTerminatedAloneOrWithItsGroup) {
  // A shell may report on standard error which of its children was terminated.
  const Child child = launchWatched(script(R"(
      exec 2>/dev/null
      trap 'echo child' TERM
      sh -c 'trap "echo grandchild; exit" TERM; echo ready; while :; do :; done' &
      while kill -0 $! 2>/dev/null; do wait $!; done)"));
  witness_.waitForLines(1);
  child->terminate();
  EXPECT_EQ(witness_.waitForLines(2), (Lines{"ready", "child"}));
  child->terminateGroup();
  EXPECT_EQ(std::ranges::count(witness_.linesAtEnd(), "grandchild"), 1);
}

TEST_F(ChildProcessTest, IsKilledIfItIgnoresSIGTERM) {
  const Child child = launchWatched(
      script("trap 'echo refused' TERM; echo ready; while :; do sleep 1000 & wait $!; done"));
  witness_.waitForLines(1);
  child->terminate();
  EXPECT_EQ(witness_.waitForLines(2), (Lines{"ready", "refused"}));
  EXPECT_TRUE(child->isRunning());
  EXPECT_FALSE(child->waitForExit(1ms));
  child->killGroup();
  EXPECT_TRUE(child->waitForExit(deadline));
  EXPECT_EQ(witness_.waitForExit(), signalled(SIGKILL));
}

TEST_F(ChildProcessTest, IsNoLongerRunningWhenItsExitIsReported) {
  std::mutex mutex;
  std::unique_lock lock(mutex);  // until the child is known
  Child child;
  std::atomic<int> running = -1;
  ProcessOptions options = script("exit 0");
  options.onExit = [&](ExitStatus) {
    const std::scoped_lock known(mutex);
    running = child->isRunning() ? 1 : 0;
  };
  child = launch(std::move(options));
  lock.unlock();
  EXPECT_TRUE(eventually([&] { return running >= 0; }));
  EXPECT_EQ(running, 0);
}

TEST_F(ChildProcessTest, KeepsItsCallbacksWhenItsHandleIsDropped) {
  launchWatched(script("echo still; exit 4")).reset();
  EXPECT_EQ(witness_.waitForExit(), exited(4));
  EXPECT_EQ(witness_.linesAtEnd(), Lines{"still"});
}

TEST_F(ChildProcessTest, IgnoresSignalsAfterItsEnd) {
  const Child child = launchWatched(script("exit 0"));
  witness_.waitForExit();
  child->terminate();
  child->terminateGroup();
  child->killGroup();
  EXPECT_TRUE(child->waitForExit(0ns));
  EXPECT_EQ(witness_.waitForExit(), exited(0));
}

/// Makes the kernel assign `id` to the next process. Returns whether it did.
bool forkWithId(pid_t id, pid_t& forked) {
  std::ofstream("/proc/sys/kernel/ns_last_pid") << id - 1 << std::flush;
  forked = ::fork();
  if (forked == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (true) ::pause();
  }
  if (forked < 0 || ::setpgid(forked, forked) != 0) throw std::runtime_error("no process");
  return forked == id;
}

/// Ends a process and returns the signal that ended it, which may be an earlier one.
int endBySignal(pid_t pid) {
  test::signalProcess(pid, SIGUSR2);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WTERMSIG(status);
}

TEST_F(ChildProcessTest, NeverSignalsAnotherProcessThatGotTheSameId) {
  if (::access("/proc/sys/kernel/ns_last_pid", W_OK) != 0) GTEST_SKIP() << "ids cannot be chosen";
  const Child child = launchWatched(script("exit 0"));
  witness_.waitForExit();
  pid_t other = 0;
  for (int attempt = 0; !forkWithId(child->pid(), other); ++attempt) {
    endBySignal(other);
    if (attempt == 100) GTEST_SKIP() << "another process got the id";
  }
  child->terminate();
  child->terminateGroup();
  child->killGroup();
  EXPECT_EQ(endBySignal(other), SIGUSR2);
}

TEST_F(ChildProcessTest, OutlivesTheReactorAsAHandle) {
  ProcessOptions options = script("echo kept; exec sleep 1000");
  std::optional<OutputLines> kept;
  options.onOutput = [&](OutputLines batch) { kept = std::move(batch); };
  Child child;
  {
    Reactor brief;
    SystemProcessLauncher launcher(brief, guardian_);
    child = *launcher.launch(std::move(options));
    EXPECT_TRUE(eventually([&] {
      bool came = false;
      brief.run([&] { came = kept.has_value(); });
      return came;
    }));
  }
  kept.reset();
  child->killGroup();
  EXPECT_FALSE(child->waitForExit(0ns));  // its end is not reaped
  guardian_.remove(child->pid());
  EXPECT_EQ(::waitpid(child->pid(), nullptr, 0), child->pid());
}

TEST_F(ChildProcessTest, LeavesNothingBehindAThousandTimes) {
  launchWatched(script("exit 0"));
  witness_.waitForExit();
  settle();
  const auto descriptors = test::openDescriptors();
  const auto children = test::childrenOf(::getpid());
  std::atomic<int> ended = 0;
  for (int i = 0; i < 1000; ++i) {
    ProcessOptions options = program(i % 10 == 9 ? "/nonexistent/program" : "/bin/true");
    options.onOutput = [](const OutputLines&) {};
    options.onExit = [&](ExitStatus status) { ended += status == exited(0) ? 1 : 0; };
    EXPECT_EQ(launcher_.launch(std::move(options)).has_value(), i % 10 != 9);
  }
  EXPECT_TRUE(eventually([&] { return ended == 900; }));
  settle();
  EXPECT_EQ(test::openDescriptors(), descriptors);
  EXPECT_EQ(test::childrenOf(::getpid()), children);
}

TEST_F(ChildProcessTest, CanBeLaunchedFromManyThreadsAtOnce) {
  constexpr int threadCount = 8;
  constexpr int launchesPerThread = 20;
  std::atomic<int> ended = 0;
  std::vector<std::thread> threads;
  threads.reserve(threadCount);
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < launchesPerThread; ++i) {
        ProcessOptions options = script("echo one; exit 5");
        options.onOutput = [](const OutputLines& lines) { EXPECT_EQ(lines.lines(), Lines{"one"}); };
        options.onExit = [&](ExitStatus status) { ended += status == exited(5) ? 1 : 0; };
        EXPECT_TRUE(launch(std::move(options))->waitForExit(deadline));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(eventually([&] { return ended == threadCount * launchesPerThread; }));
}

}  // namespace
}  // namespace zephyl
