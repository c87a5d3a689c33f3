// zephyl-tray-updater finds, fetches, verifies and installs updates of the tray, one step per run.
// It reads what to do as a line of JSON on standard input and answers in lines of JSON on standard
// output; UpdateMessages/UpdateMessages.hpp says how. It alone speaks to the outside and reads
// what strangers wrote. Its exit status is 0 when it did what it was told, 1 when it could not, 2
// when that makes no sense.

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <curl/curl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "Helpers/Updates/Program/Commands.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

constexpr std::size_t maxCommandBytes = std::size_t{1} << 20;

std::string readLine() {
  std::string line;
  char byte = 0;
  while (line.size() < maxCommandBytes && ::read(STDIN_FILENO, &byte, 1) == 1 && byte != '\n') {
    line += byte;
  }
  return line;
}

bool hasAnything(const UpdateReport& report) {
  return json::compact(json::encode(report)) != "{}";
}

void print(const UpdateReport& report) {
  if (!hasAnything(report)) return;
  std::string line = json::compact(json::encode(report));
  line += '\n';
  static_cast<void>(::write(STDOUT_FILENO, line.data(), line.size()) < 0);
}

/// Whether whoever gave the command has ended the input, or is gone.
bool inputHasEnded() {
  pollfd poll{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
  if (::poll(&poll, 1, 0) <= 0) return false;
  std::array<char, 64> ignored{};
  return ::read(STDIN_FILENO, ignored.data(), ignored.size()) <= 0;
}

/// It needs no rights beyond the user's own, now or later, and leaves no core of what it read.
void giveUpRights() {
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

UpdateReport perform(const UpdateCommand& command) {
  const Conversation conversation{.report = print, .isOver = inputHasEnded};
  if (command.watch) return perform(*command.watch, conversation);
  giveUpRights();
  if (command.check) return perform(*command.check, conversation);
  if (command.download) return perform(*command.download, conversation);
  if (command.takeBack) return perform(*command.takeBack, conversation);
  return perform(*command.install, conversation);
}

int run() {
  std::signal(SIGPIPE, SIG_IGN);
  const auto command = json::decodeText<UpdateCommand>(readLine());
  const int named = !command
                        ? 0
                        : int{command->check.has_value()} + int{command->download.has_value()} +
                              int{command->install.has_value()} + int{command->watch.has_value()} +
                              int{command->takeBack.has_value()};
  if (named != 1) {
    std::cerr << "zephyl-tray-updater: no command on standard input\n";
    return 2;
  }
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const UpdateReport report = perform(*command);
  // What watches or takes back has the tray's own output, where reports would be noise.
  const bool isAnswered = !command->watch && !command->takeBack;
  if (isAnswered) print(report);
  if (!isAnswered && report.failed) log("{}", *report.failed);
  curl_global_cleanup();
  return report.failed ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

}  // namespace zephyl

int main() {
  return zephyl::run();
}
