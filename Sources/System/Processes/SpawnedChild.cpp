#include "System/Processes/SpawnedChild.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <tuple>

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "System/Processes/CoreDumps.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/ProcessState.hpp"

namespace zephyl {

namespace {

/// The reason why the program could not be started, as written to the verdict pipe.
struct Failure {
  int number = 0;
  bool ofDirectory = false;
};

/// The child's standard descriptors. -1 means that of the tray.
struct StandardDescriptors {
  int input = -1;  // -1: /dev/null
  int output = -1;
  int errors = -1;
};

/// All that the child needs, prepared before the fork. Between fork and exec the child must not
/// allocate or lock, because another thread may have held a lock at the fork.
struct Program {
  const char* executable;
  char* const* arguments;
  char* const* environment;
  const char* directory;  // null: that of the tray
  bool tied;
  pid_t parent;
  Guardian& guardian;
  StandardDescriptors standard;
};

std::vector<std::string> argumentsOf(const ProcessOptions& options) {
  std::vector<std::string> arguments{options.executable};
  arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
  return arguments;
}

std::vector<SecretString> entriesOf(const Environment& environment) {
  constexpr std::string_view end("\0", 1);
  std::vector<SecretString> entries;
  entries.reserve(environment.size());
  for (const auto& [name, value] : environment) {
    entries.emplace_back(name).append("=").append(value).append(end);
  }
  return entries;
}

/// Returns pointers to the texts, followed by null, as exec requires.
template <typename Text>
std::vector<char*> pointersTo(std::vector<Text>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (auto& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// Blocks all signals on this thread, so that no signal handler of the tray runs in a forked child
/// and modifies shared state.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

// The functions up to `becomeProgram` run in the child: async-signal-safe calls only.

void resetSignals() {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &standard, nullptr);
  sigset_t noSignals;
  sigemptyset(&noSignals);
  ::sigprocmask(SIG_SETMASK, &noSignals, nullptr);
}

/// The guardian sees this entry even if the tray dies now, because the child holds the tray's end
/// of the guardian's pipe open until exec.
bool tie(const Program& program) {
  if (::setpgid(0, 0) != 0) return false;
  if (!program.guardian.add(::getpid())) {
    errno = EAGAIN;
    return false;
  }
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != program.parent)
    ::_exit(EXIT_FAILURE);  // the parent died before the signal was set
  return true;
}

bool arrangeDescriptors(const StandardDescriptors& standard) {
  const int input = standard.input >= 0 ? standard.input : ::open("/dev/null", O_RDONLY);
  if (input < 0 || ::dup2(input, STDIN_FILENO) < 0) return false;
  if (standard.output >= 0 && ::dup2(standard.output, STDOUT_FILENO) < 0) return false;
  if (standard.errors >= 0 && ::dup2(standard.errors, STDERR_FILENO) < 0) return false;
  // All descriptors should be close-on-exec already. This covers libraries that do not set it.
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  return true;
}

Failure runProgram(const Program& program) {
  resetSignals();
  restoreDescriptorLimit();
  coreDumps::restore();
  if (program.tied ? !tie(program) : ::setsid() < 0) return {errno};
  if (!arrangeDescriptors(program.standard)) return {errno};
  if (program.directory != nullptr && ::chdir(program.directory) != 0) return {errno, true};
  ::execve(program.executable, program.arguments, program.environment);
  return {errno};
}

[[noreturn]] void becomeProgram(const Program& program, int verdict) {
  const Failure failure = runProgram(program);
  std::ignore = ::write(verdict, &failure, sizeof failure);
  ::_exit(EXIT_FAILURE);
}

struct Pipe {
  FileDescriptor readingEnd;
  FileDescriptor writingEnd;
};

std::optional<Pipe> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  return Pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::optional<Pipe> makePipeIf(bool wanted) {
  return wanted ? makePipe() : Pipe{};
}

pid_t forkProgram(const ProcessOptions& options, Guardian& guardian,
                  const StandardDescriptors& standard, int verdict) {
  auto arguments = argumentsOf(options);
  auto environment = entriesOf(options.environment);
  const auto argumentPointers = pointersTo(arguments);
  const auto environmentPointers = pointersTo(environment);
  const std::string& directory = options.workingDirectory;
  const Program program{
      .executable = options.executable.c_str(),
      .arguments = argumentPointers.data(),
      .environment = environmentPointers.data(),
      .directory = directory.empty() ? nullptr : directory.c_str(),
      .tied = options.lifetime == ProcessOptions::Lifetime::tied,
      .parent = ::getpid(),
      .guardian = guardian,
      .standard = standard,
  };
  const SignalsBlocked blocked;
  const pid_t pid = ::fork();
  if (pid == 0) becomeProgram(program, verdict);
  return pid;
}

/// Returns nullopt if the program runs, or if the child was killed before that, which is treated as
/// an ordinary exit.
std::optional<Failure> readVerdict(const FileDescriptor& verdict) {
  Failure failure;
  ssize_t count = 0;
  do {
    count = ::read(verdict.get(), &failure, sizeof failure);
  } while (count < 0 && errno == EINTR);
  if (count != sizeof failure) return std::nullopt;
  return failure;
}

}  // namespace

void discard(pid_t pid, Guardian& guardian) {
  ::kill(pid, SIGKILL);
  ::kill(-pid, SIGKILL);
  siginfo_t ignored{};
  while (::waitid(P_PID, static_cast<id_t>(pid), &ignored, WEXITED | WNOWAIT) < 0 &&
         errno == EINTR) {
  }
  guardian.remove(pid);  // before it is reaped, while its id cannot be reused
  ::waitpid(pid, nullptr, 0);
}

Result<SpawnedChild> spawn(const ProcessOptions& options, Guardian& guardian) {
  auto verdict = makePipe();
  auto input = makePipeIf(options.hasInput);
  auto output = makePipeIf(options.onOutput != nullptr);
  auto errors = makePipeIf(options.onErrorOutput != nullptr);
  if (!verdict || !input || !output || !errors) return systemError(options.executable, errno);
  const FileDescriptor& errorEnd = errors->writingEnd ? errors->writingEnd : output->writingEnd;
  const pid_t pid = forkProgram(options, guardian,
                                {input->readingEnd.get(), output->writingEnd.get(), errorEnd.get()},
                                verdict->writingEnd.get());
  if (pid < 0) return systemError(options.executable, errno);
  FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  if (!process) {
    const int number = errno;
    discard(pid, guardian);
    return systemError(options.executable, number);
  }
  return SpawnedChild{pid,
                      std::move(process),
                      std::move(input->writingEnd),
                      std::move(output->readingEnd),
                      std::move(errors->readingEnd),
                      std::move(verdict->readingEnd)};
}

Result<void> awaitProgram(SpawnedChild& child, const ProcessOptions& options, Guardian& guardian) {
  const auto failure = readVerdict(child.verdict);
  child.verdict.reset();
  if (!failure) return {};
  discard(child.pid, guardian);
  return systemError(failure->ofDirectory ? options.workingDirectory : options.executable,
                     failure->number);
}

}  // namespace zephyl
