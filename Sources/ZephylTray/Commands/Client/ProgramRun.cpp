#include "ZephylTray/Commands/Client/ProgramRun.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t maxOutput = 4096;

/// The descriptors of the program, as actions of `posix_spawn`.
class Redirections {
 public:
  explicit Redirections(int output) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  ~Redirections() { ::posix_spawn_file_actions_destroy(&actions_); }
  Redirections(const Redirections&) = delete;
  Redirections& operator=(const Redirections&) = delete;

  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

pid_t spawn(const std::vector<std::string>& command, int output) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const auto& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const Redirections redirections(output);
  pid_t process = 0;
  const int failure = ::posix_spawnp(&process, arguments.front(), redirections.get(), nullptr,
                                     arguments.data(), environ);
  return failure == 0 ? process : -1;
}

/// Reads to the end of the input. Returns false on failure or if the deadline passes.
bool readAll(int input, steady_clock::time_point deadline, std::string& into) {
  std::array<char, 1024> piece{};
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    pollfd interest{.fd = input, .events = POLLIN, .revents = 0};
    const int ready = ::poll(&interest, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    const auto count = ::read(input, piece.data(), piece.size());
    if (count <= 0) return count == 0;
    into.append(piece.data(), static_cast<std::size_t>(count));
    into.resize(std::min(into.size(), maxOutput));
  }
}

}  // namespace

ProgramRun runProgram(const std::vector<std::string>& command, std::chrono::milliseconds limit) {
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return {};
  const FileDescriptor input(pipe[0]);
  FileDescriptor output(pipe[1]);
  const pid_t process = spawn(command, output.get());
  output.reset();
  if (process < 0) return {};
  ProgramRun run;
  if (!readAll(input.get(), steady_clock::now() + limit, run.output)) ::kill(process, SIGKILL);
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
  run.output.erase(run.output.find_last_not_of('\n') + 1);
  return run;
}

}  // namespace zephyl
