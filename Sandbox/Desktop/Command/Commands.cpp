#include "Desktop/Command/Commands.hpp"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <boost/json.hpp>
#include <fmt/format.h>

#include "Common/Text.hpp"
#include "Desktop/Command/Choice.hpp"
#include "Desktop/Command/CommandLine.hpp"
#include "Desktop/Command/Fields.hpp"
#include "Desktop/Command/Reports.hpp"
#include "Desktop/Command/Session.hpp"
#include "Desktop/Common/SocketPath.hpp"

namespace zephyl::sandbox::desktop {
namespace json = boost::json;
namespace {

constexpr int usageStatus = 2;

using Outcome = Result<void>;

struct Entry {
  Verb verb;
  Outcome (*run)(const Session&);
};

std::string serverPath(const std::string& id, std::string_view rest = "") {
  return fmt::format("/servers/{}{}", id, rest);
}

Outcome show(const Session& session, std::string_view text) {
  if (!session.invocation().json) fmt::print("{}", text);
  return {};
}

/// Sends the request, and says so in words when it succeeds.
Outcome change(const Session& session, const Request& request, std::string_view words) {
  const auto answer = session.askAndShow(request);
  if (!answer) return answer.error();
  return show(session, fmt::format("{}\n", words));
}

/// A change of the server that the first operand means.
Outcome changeServer(const Session& session, std::string_view property, const json::object& body,
                     std::string_view words) {
  const auto id = session.server();
  if (!id) return id.error();
  return change(
      session, {.method = "POST", .path = serverPath(*id, property), .body = json::serialize(body)},
      words);
}

Outcome status(const Session& session) {
  const auto answer = session.askAndShow({.method = "GET", .path = "/status"});
  if (!answer) return answer.error();
  return show(session, statusReport(*answer));
}

Outcome join(const Session& session) {
  auto key = session.invocation().operands.front();
  if (key == "-" && !std::getline(std::cin, key)) return Failure{"no key on standard input"};
  return change(
      session,
      {.method = "POST", .path = "/invite", .body = json::serialize(json::object{{"key", key}})},
      fmt::format("Joining. See how it goes with: {} servers", session.program()));
}

Outcome servers(const Session& session) {
  const auto answer = session.askAndShow({.method = "GET", .path = "/servers"});
  if (!answer) return answer.error();
  const auto& list = listField(*answer, "servers");
  return show(session, list.empty() ? fmt::format("No servers yet. Join one with: {} join KEY\n",
                                                  session.program())
                                    : serversReport(list));
}

Outcome rename(const Session& session) {
  return changeServer(session, "/label", {{"label", session.invocation().operands[1]}}, "Renamed.");
}

Outcome accent(const Session& session) {
  return changeServer(session, "/accent", {{"accent", session.invocation().operands[1]}},
                      "Coloured.");
}

Outcome enable(const Session& session) {
  return changeServer(session, "/enabled", {{"enabled", true}}, "Enabled.");
}

Outcome disable(const Session& session) {
  return changeServer(session, "/enabled", {{"enabled", false}}, "Disabled.");
}

Outcome remove(const Session& session) {
  const auto id = session.server();
  if (!id) return id.error();
  return change(session, {.method = "DELETE", .path = serverPath(*id)}, "Removed.");
}

Outcome folders(const Session& session) {
  const auto answer = session.askAndShow({.method = "GET", .path = "/roots"});
  if (!answer) return answer.error();
  const auto& roots = listField(*answer, "roots");
  if (roots.empty()) {
    return show(session, fmt::format("No folder is shared. Share one with: {} share ID\n",
                                     session.program()));
  }
  const auto known = session.servers();
  if (!known) return known.error();
  return show(session, foldersReport(roots, *known));
}

Outcome share(const Session& session) {
  const auto id = session.server();
  if (!id) return id.error();
  // A user who cancels the choice is a success to the API.
  return change(session, {.method = "POST", .path = serverPath(*id, "/roots")},
                fmt::format("Done. See what is shared with: {} folders", session.program()));
}

Outcome unshare(const Session& session) {
  const auto roots = session.ask({.method = "GET", .path = "/roots"});
  if (!roots) return roots.error();
  const auto folder = chooseFolder(listField(*roots, "roots"), session.invocation().operands[1]);
  return changeServer(session, "/roots/scope", {{"root", folder}, {"shared", false}},
                      "No longer shared with this server.");
}

Outcome restartAgent(const Session& session) {
  return change(session, {.method = "POST", .path = "/agent/restart"}, "The agent restarts.");
}

Outcome diagnostics(const Session& session) {
  const auto answer = session.askAndShow({.method = "GET", .path = "/diagnostics"});
  if (!answer) return answer.error();
  return show(session, outline(*answer));
}

Outcome requests(const Session& session) {
  return session.link().watch([&](const std::string& route) {
    const auto line = session.invocation().json ? json::serialize(json::object{{"request", route}})
                                                : printable(route);
    fmt::print("{}\n", line);
    std::fflush(stdout);
  });
}

const std::vector<Entry>& entries() {
  static const std::vector<Entry> all{
      {{"status", "", "whether the tray has joined a server and is connected"}, status},
      {{"join", "KEY", "join a server with an invite key; - reads the key from standard input"},
       join},
      {{"servers", "", "list the servers"}, servers},
      {{"rename", "ID NAME", "give a server a name of your own; \"\" takes it back"}, rename},
      {{"accent", "ID COLOUR", "give a server a colour, such as #3366cc; \"\" takes it back"},
       accent},
      {{"enable", "ID", "connect to a server"}, enable},
      {{"disable", "ID", "stay away from a server without forgetting it"}, disable},
      {{"remove", "ID", "forget a server"}, remove},
      {{"folders", "", "list the shared folders"}, folders},
      {{"share", "ID", "have the tray ask for a folder to share with a server"}, share},
      {{"unshare", "ID FOLDER", "take a folder away from a server"}, unshare},
      {{"restart-agent", "", "restart the agent"}, restartAgent},
      {{"diagnostics", "", "everything that a bug report needs"}, diagnostics},
      {{"requests", "", "print each screen that the tray asks for, until interrupted"}, requests},
  };
  return all;
}

int fail(std::string_view program, const Failure& failure) {
  fmt::print(stderr, "{}: {}\n", program, printable(failure.message));
  return 1;
}

int refuse(std::string_view program, const Failure& failure) {
  fmt::print(stderr, "{0}: {1}\nTry: {0} --help\n", program, printable(failure.message));
  return usageStatus;
}

}  // namespace

int runCommand(std::string_view program, std::span<const char* const> words) {
  std::vector<Verb> verbs;
  for (const auto& entry : entries()) verbs.push_back(entry.verb);
  auto reading = readCommandLine(program, verbs, words);
  if (!reading) return refuse(program, reading.error());
  if (const auto* notice = std::get_if<Notice>(&*reading)) {
    fmt::print("{}", notice->text);
    return 0;
  }
  auto& invocation = std::get<Invocation>(*reading);
  const auto entry = std::find_if(entries().begin(), entries().end(), [&](const Entry& known) {
    return known.verb.name == invocation.verb;
  });
  const auto path = socketPath();
  if (!path) return fail(program, path.error());
  const auto outcome = entry->run(Session(program, std::move(invocation), WindowLink(*path)));
  return outcome ? 0 : fail(program, outcome.error());
}

}  // namespace zephyl::sandbox::desktop
