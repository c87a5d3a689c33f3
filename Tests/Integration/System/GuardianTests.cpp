#include "System/Processes/Guardian.hpp"

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "Support/Children.hpp"
#include "Support/Eventually.hpp"
#include "Support/Processes.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::hasEnded;
using test::script;

constexpr auto deadline = 20s;

/// Returns the guardian of a process after it has set its name.
pid_t guardianOf(pid_t parent) {
  pid_t guardian = -1;
  const auto isFound = [&] {
    for (const pid_t child : test::childrenOf(parent)) {
      const auto state = test::processState(child);
      if (state && state->name == "zephyl-guardian") guardian = child;
    }
    return guardian > 0;
  };
  if (!eventually(isFound)) throw std::runtime_error("there is no guardian");
  return guardian;
}

/// A process that leads a group and waits for a signal. Must be created before the guardian,
/// because it would inherit the guardian's pipe.
pid_t startGroup() {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (true) ::pause();
  }
  if (pid < 0 || ::setpgid(pid, pid) != 0) throw std::runtime_error("no group");
  return pid;
}

/// Returns the signal that ended a child.
int endOf(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(Guardian, EndsTheRemainingGroups) {
  const pid_t group = startGroup();
  std::optional<Guardian> guardian = Guardian::start().value();
  EXPECT_TRUE(guardian->add(group));
  int signal = 0;
  std::thread parent([&] { signal = endOf(group); });
  guardian.reset();
  parent.join();
  EXPECT_EQ(signal, SIGTERM);
}

TEST(Guardian, LeavesAGroupThatWasRemoved) {
  const pid_t group = startGroup();
  std::optional<Guardian> guardian = Guardian::start().value();
  EXPECT_TRUE(guardian->add(group));
  guardian->remove(group);
  guardian.reset();
  test::signalProcess(group, SIGUSR1);
  EXPECT_EQ(endOf(group), SIGUSR1);
}

TEST(Guardian, EndsWithItsOwner) {
  const auto descriptors = test::openDescriptors();
  pid_t process = -1;
  {
    const Guardian guardian = Guardian::start().value();
    process = guardianOf(::getpid());
    EXPECT_GT(process, 0);
    EXPECT_FALSE(hasEnded(process));
  }
  EXPECT_FALSE(test::processState(process));
  EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST(Guardian, IsASeparateProcessWithoutTheTraysDescriptors) {
  const Guardian guardian = Guardian::start().value();
  const pid_t process = guardianOf(::getpid());
  EXPECT_TRUE(eventually([&] { return test::processState(process)->session == process; }));
  const std::string directory = "/proc/" + std::to_string(process);
  const auto target = [&](const std::string& name) {
    std::error_code ignored;
    return std::filesystem::read_symlink(directory + "/" + name, ignored).string();
  };
  EXPECT_TRUE(eventually([&] { return target("fd/2") == "/dev/null" && target("cwd") == "/"; }));
  EXPECT_EQ(target("fd/0"), "/dev/null");
  EXPECT_EQ(target("fd/1"), "/dev/null");
  EXPECT_TRUE(eventually([&] {
    const std::filesystem::directory_iterator descriptors(directory + "/fd");
    return std::distance(begin(descriptors), end(descriptors)) == 4;
  }));
  EXPECT_TRUE(target("fd/3").starts_with("pipe:"));
}

TEST(Guardian, RefusesAGroupIdThatMeansEveryProcess) {
  Guardian guardian = Guardian::start().value();
  for (const pid_t group : {1, 0, -1, -1000}) EXPECT_FALSE(guardian.add(group)) << group;
}

TEST(Guardian, RefusesAGroupWhenItsTableIsFull) {
  constexpr pid_t beyondAllIds = 1 << 23;
  Guardian guardian = Guardian::start().value();
  const auto size = static_cast<pid_t>(Guardian::maxGroups);
  for (pid_t i = 0; i < size; ++i) EXPECT_TRUE(guardian.add(beyondAllIds + i));
  EXPECT_FALSE(guardian.add(beyondAllIds + size));
  guardian.remove(beyondAllIds + 7);
  EXPECT_TRUE(guardian.add(beyondAllIds + size));
  EXPECT_FALSE(guardian.add(beyondAllIds + size + 1));
}

TEST(Guardian, BlocksNobodyIfItIsDeadOrStopped) {
  for (const int signal : {SIGKILL, SIGSTOP}) {
    Guardian guardian = Guardian::start().value();
    const pid_t process = guardianOf(::getpid());
    test::signalProcess(process, signal);
    for (int i = 0; i < 10000; ++i) {
      EXPECT_TRUE(guardian.add(1 << 23));
      guardian.remove(1 << 23);
    }
    test::signalProcess(process, SIGCONT);
  }
}

/// A tray in a separate process with a guardian and a launcher. Its children write to one pipe,
/// which ends when all of its children and grandchildren have ended.
class Tray {
 public:
  using Work = std::function<void(ProcessLauncher&)>;

  /// Runs `work`, then waits until it is killed or asked to end.
  explicit Tray(const Work& work) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    output_.reset(ends[0]);
    FileDescriptor writing(ends[1]);
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("no process");
    if (pid_ == 0) run(work, writing);
  }
  ~Tray() { kill(); }
  Tray(const Tray&) = delete;
  Tray& operator=(const Tray&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  void kill() { end(SIGKILL); }
  /// Ends it normally, through its destructors.
  void quit() { end(SIGUSR1); }

  /// Returns the next number that a child writes.
  pid_t readNumber() {
    std::string digits;
    for (char next = readCharacter(); next != '\n'; next = readCharacter()) digits += next;
    return std::stoi(digits);
  }

  /// Returns whether all processes that the tray started end in time.
  bool allGone(std::chrono::milliseconds limit = deadline) {
    while (true) {
      pollfd waiting{.fd = output_.get(), .events = POLLIN, .revents = 0};
      if (::poll(&waiting, 1, static_cast<int>(limit.count())) != 1) return false;
      std::array<char, 4096> ignored{};
      if (::read(output_.get(), ignored.data(), ignored.size()) <= 0) return true;
    }
  }

 private:
  [[noreturn]] static void run(const Work& work, FileDescriptor& output) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(output.get(), STDOUT_FILENO);
    output.reset();
    sigset_t quit;
    sigemptyset(&quit);
    sigaddset(&quit, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &quit, nullptr);
    {
      Guardian guardian = Guardian::start().value();
      Reactor reactor;
      SystemProcessLauncher launcher(reactor, guardian);
      work(launcher);
      int signal = 0;
      ::sigwait(&quit, &signal);
    }
    ::_exit(0);
  }

  char readCharacter() {
    pollfd waiting{.fd = output_.get(), .events = POLLIN, .revents = 0};
    char character = 0;
    if (::poll(&waiting, 1, std::chrono::milliseconds(deadline).count()) != 1 ||
        ::read(output_.get(), &character, 1) != 1) {
      throw std::runtime_error("the tray's children say nothing");
    }
    return character;
  }

  void end(int signal) {
    const pid_t pid = std::exchange(pid_, -1);
    if (pid < 0) return;
    test::signalProcess(pid, signal);
    ::waitpid(pid, nullptr, 0);
  }

  FileDescriptor output_;
  pid_t pid_ = -1;
};

void launch(ProcessLauncher& launcher, ProcessOptions options) {
  if (!launcher.launch(std::move(options))) ::_exit(1);
}

TEST(TrayThatIsKilled, EndsItsChildrenAndGrandchildren) {
  Tray tray([](ProcessLauncher& launcher) {
    launch(launcher, script("sleep 1000 & echo $!; wait"));
    launch(launcher, script("echo $$; exec sleep 1000"));
  });
  const pid_t one = tray.readNumber();
  const pid_t other = tray.readNumber();
  const pid_t guardian = guardianOf(tray.pid());
  EXPECT_FALSE(hasEnded(one));
  EXPECT_FALSE(hasEnded(other));
  tray.kill();
  EXPECT_TRUE(tray.allGone());
  EXPECT_TRUE(eventually([&] { return hasEnded(guardian); }));
}

TEST(TrayThatIsKilled, EndsChildrenThatIgnoreSIGTERM) {
  Tray tray([](ProcessLauncher& launcher) {
    launch(launcher, script("trap '' TERM; sleep 1000 & echo $!; while :; do sleep 1000; done"));
  });
  tray.readNumber();
  tray.kill();
  EXPECT_TRUE(tray.allGone());
}

TEST(TrayThatIsKilled, EndsTheGrandchildrenOfAChildThatTerminatesItself) {
  Tray tray([](ProcessLauncher& launcher) {
    launch(launcher,
           script("sh -c 'trap \"\" TERM; echo $$; while :; do sleep 1000; done' & wait"));
  });
  tray.readNumber();
  tray.kill();
  EXPECT_TRUE(tray.allGone());
}

TEST(TrayThatIsKilled, LeavesIndependentChildren) {
  Tray tray([](ProcessLauncher& launcher) {
    auto options = script("echo $$; exec sleep 1000");
    options.lifetime = ProcessOptions::Lifetime::independent;
    launch(launcher, std::move(options));
  });
  const pid_t child = tray.readNumber();
  const pid_t guardian = guardianOf(tray.pid());
  EXPECT_EQ(test::processState(child)->session, child);
  tray.kill();
  EXPECT_TRUE(eventually([&] { return hasEnded(guardian); }));
  EXPECT_FALSE(hasEnded(child));
  test::signalProcess(child, SIGKILL);
  EXPECT_TRUE(tray.allGone());
}

TEST(TrayThatIsKilled, EndsItsChildrenEvenWithoutItsGuardian) {
  Tray tray(
      [](ProcessLauncher& launcher) { launch(launcher, script("echo $$; exec sleep 1000")); });
  tray.readNumber();
  const pid_t guardian = guardianOf(tray.pid());
  test::signalProcess(guardian, SIGKILL);
  EXPECT_TRUE(eventually([&] { return hasEnded(guardian); }));
  tray.kill();
  EXPECT_TRUE(tray.allGone());
}

TEST(TrayThatIsKilled, LeavesCleanUpToAGuardianThatIgnoresItsSignals) {
  Tray tray(
      [](ProcessLauncher& launcher) { launch(launcher, script("sleep 1000 & echo $!; wait")); });
  tray.readNumber();
  const pid_t guardian = guardianOf(tray.pid());
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGUSR1, SIGTSTP}) {
    test::signalProcess(guardian, signal);
  }
  tray.kill();
  EXPECT_TRUE(tray.allGone());
}

TEST(TrayThatIsKilled, LeavesNothingAtAnyMomentOfALaunch) {
  for (int round = 0; round < 20; ++round) {
    Tray tray([](ProcessLauncher& launcher) {
      while (true) launch(launcher, script("sleep 1000 & echo $!; wait"));
    });
    for (int started = 0; started <= round % 5; ++started) tray.readNumber();
    tray.kill();
    EXPECT_TRUE(tray.allGone()) << "round " << round;
  }
}

TEST(TrayThatEnds, LeavesNoChildAndNoGuardian) {
  Tray tray([](ProcessLauncher& launcher) {
    launch(launcher, script("sleep 1000 & echo $!; wait"));
    const auto brief = launcher.launch(script("echo $$")).value();
    if (!brief->waitForExit(deadline)) ::_exit(1);
  });
  tray.readNumber();
  tray.readNumber();
  const pid_t guardian = guardianOf(tray.pid());
  tray.quit();
  EXPECT_TRUE(hasEnded(guardian));
  EXPECT_TRUE(tray.allGone());
}

}  // namespace
}  // namespace zephyl
