// zephyl-tray-updater finds, downloads, verifies and installs updates of the tray, one step per
// run. It reads a command as a line of JSON on standard input and writes reports as lines of JSON
// to standard output, as described in Helpers/Updates/Protocol/UpdateMessages.hpp. Only this
// program uses the network and reads untrusted data. Its exit status is 0 if the command succeeded,
// 1 if it failed, 2 if there is no valid command.

#include <csignal>
#include <cstdlib>
#include <iostream>

#include <curl/curl.h>
#include <sys/prctl.h>

#include "Helpers/Updates/Program/Commands.hpp"
#include "System/Data/Overloaded.hpp"
#include "System/Files/Log.hpp"
#include "System/Processes/JSONLines.hpp"

namespace zephyl {

namespace {

/// Drops all privileges beyond the user's own, permanently, and disables core dumps.
void dropPrivileges() {
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

/// Logs a failure instead of reporting it, because these commands write to the tray's own output.
bool logFailure(const Result<void>& outcome) {
  if (!outcome) log("{}", outcome.error().message);
  return outcome.has_value();
}

bool report(const UpdateReport& last, JSONLines& lines) {
  lines.write(last);
  return !std::holds_alternative<UpdateFailed>(last);
}

/// Returns whether the command succeeded.
bool perform(const UpdateCommand& command, JSONLines& lines) {
  const CommandClient client{
      .report = [&](const UpdateProgress& progress) { lines.write(UpdateReport(progress)); },
      .hasCancelled = [&] { return lines.inputHasEnded(); }};
  if (!std::holds_alternative<WatchCommand>(command)) dropPrivileges();
  return std::visit(
      Overloaded{
          [&](const CheckCommand& check) { return report(perform(check, client), lines); },
          [&](const DownloadCommand& download) { return report(perform(download, client), lines); },
          [&](const InstallCommand& install) { return report(perform(install), lines); },
          [&](const WatchCommand& watch) { return logFailure(perform(watch)); },
          [&](const RollBackCommand& rollBack) { return logFailure(perform(rollBack)); }},
      command);
}

int run() {
  std::signal(SIGPIPE, SIG_IGN);
  JSONLines lines;
  const auto command = lines.await<UpdateCommand>();
  if (!command) {
    std::cerr << "zephyl-tray-updater: no command on standard input: " << command.error().message
              << '\n';
    return 2;
  }
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const bool succeeded = perform(*command, lines);
  curl_global_cleanup();
  return succeeded ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

}  // namespace zephyl

int main() {
  return zephyl::run();
}
