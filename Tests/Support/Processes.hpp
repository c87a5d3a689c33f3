#pragma once

#include <charconv>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

namespace zephyl::test {

/// The state of a process according to the kernel.
struct ProcessState {
  std::string name;
  char state = 0;  // 'Z' for a zombie, 'S' for a sleeping process
  pid_t parent = 0;
  pid_t group = 0;
  pid_t session = 0;
};

inline std::optional<ProcessState> processState(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos) return std::nullopt;
  ProcessState process;
  process.name = text.substr(open + 1, close - open - 1);
  std::istringstream rest(text.substr(close + 1));
  rest >> process.state >> process.parent >> process.group >> process.session;
  return process;
}

/// Returns whether a process has ended. It may still be a zombie.
inline bool hasEnded(pid_t pid) {
  const auto process = processState(pid);
  return !process || process->state == 'Z' || process->state == 'X';
}

/// Returns the children of a process, including zombies.
inline std::vector<pid_t> childrenOf(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    pid_t pid = 0;
    if (std::from_chars(name.data(), name.data() + name.size(), pid).ec != std::errc()) continue;
    const auto process = processState(pid);
    if (process && process->parent == parent) children.push_back(pid);
  }
  return children;
}

/// Sends a signal to one process. Refuses ids that mean several processes, such as the -1 of a
/// failed search or fork, because these signals could end the user's session.
inline void signalProcess(pid_t pid, int signal) {
  if (pid <= 1) throw std::invalid_argument("no process to send a signal to");
  ::kill(pid, signal);
}

/// Returns the number of open descriptors of this process.
inline std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

}  // namespace zephyl::test
