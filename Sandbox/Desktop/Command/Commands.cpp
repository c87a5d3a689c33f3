#include "Desktop/Command/Commands.hpp"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Common/Log.hpp"
#include "Desktop/Command/Choice.hpp"
#include "Desktop/Command/CommandLine.hpp"
#include "Desktop/Command/Reports.hpp"
#include "Desktop/Command/WindowLink.hpp"
#include "Desktop/Window/Messages.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox::desktop {
namespace {

/// The context of a command: the window and the command line.
struct Session {
  std::string_view program;
  Invocation invocation;
  WindowLink link;

  [[nodiscard]] const std::string& operand(std::size_t index) const {
    return invocation.operands[index];
  }

  template <typename T>
  [[nodiscard]] Result<T> ask(const Request& request) const {
    const auto answer = link.ask(request);
    if (!answer) return answer.error();
    return contentAs<T>(*answer);
  }

  /// Sends the command's request. With --json prints its answer unchanged.
  [[nodiscard]] Result<json::Value> askAndShow(const Request& request) const {
    const auto answer = link.ask(request);
    if (!answer) return answer.error();
    if (invocation.json) print(answer->body + '\n');
    return contentOf(*answer);
  }

  /// Prints the text, unless the answer was printed already.
  [[nodiscard]] Result<void> show(std::string_view text) const {
    if (!invocation.json) print(text);
    return {};
  }

  /// Returns the id of the server that the first operand names.
  [[nodiscard]] Result<std::string> server() const {
    const auto known = ask<ServerList>(getServers());
    if (!known) return known.error();
    return chooseServer(known->servers, operand(0));
  }
};

/// Sends the request and prints the answer, formatted by `report`.
template <typename T, typename Report>
Result<void> showAnswer(const Session& session, const Request& request, Report report) {
  const auto answer = session.askAndShow(request);
  if (!answer) return answer.error();
  const auto content = json::decode<T>(*answer);
  if (!content) return content.error();
  return report(*content);
}

/// Sends the request, and prints the text when it succeeds.
Result<void> change(const Session& session, const Request& request, const std::string& text) {
  const auto answer = session.askAndShow(request);
  if (!answer) return answer.error();
  return session.show(text + '\n');
}

/// Sends a change of the server that the first operand names.
template <typename MakeRequest>
Result<void> changeServer(const Session& session, MakeRequest makeRequest,
                          const std::string& text) {
  const auto id = session.server();
  if (!id) return id.error();
  return change(session, makeRequest(*id), text);
}

Result<void> status(const Session& session) {
  return showAnswer<TrayStatus>(session, getStatus(), [&](const TrayStatus& status) {
    return session.show(statusReport(status));
  });
}

Result<void> join(const Session& session) {
  auto key = session.operand(0);
  if (key == "-" && !std::getline(std::cin, key)) return Error{"no key on standard input"};
  return change(session, joinServer(key),
                formatText("Joining. See the progress with: {} servers", session.program));
}

Result<void> servers(const Session& session) {
  return showAnswer<ServerList>(session, getServers(), [&](const ServerList& list) {
    return session.show(
        list.servers.empty()
            ? formatText("No servers yet. Join one with: {} join KEY\n", session.program)
            : serversReport(list.servers));
  });
}

Result<void> rename(const Session& session) {
  return changeServer(
      session, [&](const auto& id) { return renameServer(id, session.operand(1)); }, "Renamed.");
}

Result<void> accent(const Session& session) {
  return changeServer(
      session, [&](const auto& id) { return setAccent(id, session.operand(1)); }, "Colored.");
}

Result<void> enable(const Session& session) {
  return changeServer(
      session, [](const auto& id) { return setEnabled(id, true); }, "Enabled.");
}

Result<void> disable(const Session& session) {
  return changeServer(
      session, [](const auto& id) { return setEnabled(id, false); }, "Disabled.");
}

Result<void> remove(const Session& session) {
  return changeServer(session, removeServer, "Removed.");
}

Result<void> folders(const Session& session) {
  return showAnswer<FolderList>(session, getFolders(), [&](const FolderList& list) -> Result<void> {
    if (list.roots.empty()) {
      return session.show(
          formatText("No folder is shared. Share one with: {} share ID\n", session.program));
    }
    const auto known = session.ask<ServerList>(getServers());
    if (!known) return known.error();
    return session.show(foldersReport(list.roots, known->servers));
  });
}

Result<void> share(const Session& session) {
  // The API answers with success even if the user cancels.
  return changeServer(
      session, shareFolder,
      formatText("Done. List the shared folders with: {} folders", session.program));
}

Result<void> unshare(const Session& session) {
  const auto list = session.ask<FolderList>(getFolders());
  if (!list) return list.error();
  const auto folder = chooseFolder(list->roots, session.operand(1));
  return changeServer(
      session, [&](const auto& id) { return setFolderShared(id, folder, false); },
      "No longer shared with this server.");
}

Result<void> restart(const Session& session) {
  return change(session, restartAgent(), "The agent restarts.");
}

Result<void> diagnostics(const Session& session) {
  const auto answer = session.askAndShow(getDiagnostics());
  if (!answer) return answer.error();
  return session.show(outline(*answer));
}

Result<void> requests(const Session& session) {
  return session.link.watch([&](const std::string& route) {
    const auto line =
        session.invocation.json ? json::compact(json::Object{{"request", route}}) : visible(route);
    print(line + '\n');
  });
}

struct Entry {
  Verb verb;
  Result<void> (*run)(const Session&);
};

const std::vector<Entry>& entries() {
  static const std::vector<Entry> all{
      {{"status", "", "print whether the tray has joined a server and is connected"}, status},
      {{"join", "KEY", "join a server with an invite key; - reads the key from standard input"},
       join},
      {{"servers", "", "list the servers"}, servers},
      {{"rename", "ID NAME", "set your own name for a server; \"\" removes it"}, rename},
      {{"accent", "ID COLOR", "set the color of a server, such as #3366cc; \"\" removes it"},
       accent},
      {{"enable", "ID", "connect to a server"}, enable},
      {{"disable", "ID", "disconnect from a server without removing it"}, disable},
      {{"remove", "ID", "remove a server"}, remove},
      {{"folders", "", "list the shared folders"}, folders},
      {{"share", "ID", "choose a folder to share with a server"}, share},
      {{"unshare", "ID FOLDER", "stop sharing a folder with a server"}, unshare},
      {{"restart-agent", "", "restart the agent"}, restart},
      {{"diagnostics", "", "print the diagnostics for a bug report"}, diagnostics},
      {{"requests", "", "print each screen that the tray requests, until interrupted"}, requests},
  };
  return all;
}

int fail(std::string_view program, const Error& error) {
  return reportFailure(std::string(program).c_str(), visible(error.message));
}

}  // namespace

int runCommand(std::string_view program, std::span<const char* const> words) {
  std::vector<Verb> verbs;
  for (const auto& entry : entries()) verbs.push_back(entry.verb);
  auto reading = readCommandLine(program, verbs, words);
  if (!reading) {
    fail(program, reading.error());
    std::fputs(formatText("Try: {} --help\n", program).c_str(), stderr);
    return usageStatus;
  }
  if (const auto* notice = std::get_if<Notice>(&*reading)) {
    print(notice->text);
    return 0;
  }
  auto& invocation = std::get<Invocation>(*reading);
  const auto entry = std::ranges::find(entries(), invocation.verb,
                                       [](const Entry& known) { return known.verb.name; });
  const auto path = socketPath();
  if (!path) return fail(program, path.error());
  const Session session{program, std::move(invocation), WindowLink(*path)};
  const auto result = entry->run(session);
  return result ? 0 : fail(program, result.error());
}

}  // namespace zephyl::sandbox::desktop
