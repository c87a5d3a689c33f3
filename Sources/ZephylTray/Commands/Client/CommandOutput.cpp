#include "ZephylTray/Commands/Client/CommandOutput.hpp"

#include <algorithm>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::commandOutput {

namespace {

using Rows = std::vector<std::vector<std::string>>;

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  while (!text.empty()) {
    text.remove_prefix(firstCharacter(text).length);
    ++count;
  }
  return count;
}

/// Aligns columns. The last column is not padded.
std::string table(const Rows& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], characterCount(row[i]));
    }
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(widths[i] - characterCount(row[i]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

std::string notice(const char* mark, const CommandNotice& notice) {
  std::string text = formatText("{} {}\n", mark, visible(notice.message));
  if (!notice.advice.empty()) text += formatText("  {}\n", visible(notice.advice));
  return text;
}

/// Returns a quoted field. Quotes in it are escaped.
std::string inQuotes(std::string_view field) {
  std::string text = "\"";
  for (const char character : visibleWithBlanks(field)) {
    if (character == '"' || character == '\\') text += '\\';
    text += character;
  }
  return text + "\"";
}

std::string requestLine(const PendingApproval& request) {
  std::string line =
      formatText("{}  {}={}  tool={}  folder={}", visibleWithBlanks(request.id),
                 request.kind == "shell" ? "command" : "path", inQuotes(request.target),
                 inQuotes(request.tool), inQuotes(request.root));
  line += formatText("  by={}", inQuotes(request.userName.value_or("Someone")));
  if (request.chatTitle && !request.chatTitle->empty()) {
    line += formatText("  chat={}", inQuotes(*request.chatTitle));
  }
  for (const auto& reason : request.reasons)
    line += formatText("  why={}", inQuotes(reason.detail));
  return line + "\n";
}

std::string indexState(const CommandFolder& folder) {
  if (!folder.files || !folder.indexed) return "";
  if (folder.ready.value_or(false)) {
    return *folder.files == 1 ? "indexed 1 file" : formatText("indexed {} files", *folder.files);
  }
  return formatText("indexing {}/{}", *folder.indexed, *folder.files);
}

std::string nameOf(const std::string& id, const std::vector<CommandServerRecord>& servers) {
  const auto found = std::ranges::find(servers, id, &CommandServerRecord::id);
  return visible(found == servers.end() ? id : found->name);
}

}  // namespace

std::string status(const CommandStatus& status) {
  std::string text = formatText("Zephyl {}, process {}, {}\n{}\n", visible(status.version),
                                status.pid, visible(status.mode), visible(status.summary));
  if (!status.attention.empty() || !status.notes.empty()) text += "\n";
  for (const auto& each : status.attention) text += notice("!", each);
  for (const auto& each : status.notes) text += notice("-", each);
  if (status.attention.empty()) text += "\nNothing needs your attention.\n";
  return text;
}

std::string change(const CommandStatus& status) {
  std::vector<std::string> parts{visible(status.summary)};
  for (const auto& each : status.attention) parts.push_back("! " + visible(each.message));
  return joined(parts, "  ") + "\n";
}

std::string servers(const std::vector<CommandServerRecord>& servers) {
  if (servers.empty()) return "No server has been joined. Run `zephyl-tray join`.\n";
  Rows rows{{"ID", "NAME", "STATE", "ADDRESS", ""}};
  for (const auto& server : servers) {
    std::string rest = server.relay ? "via " + visible(*server.relay) : "";
    if (server.problem) rest += (rest.empty() ? "" : ", ") + visible(*server.problem);
    rows.push_back({visible(server.id), visible(server.name), server.state,
                    visible(server.address.value_or("-")), rest});
  }
  return table(rows);
}

std::string folders(const std::vector<CommandFolder>& folders,
                    const std::vector<CommandServerRecord>& servers) {
  if (folders.empty()) return "No folder is shared.\n";
  Rows rows{{"FOLDER", "SHARED WITH", "INDEX"}};
  for (const auto& folder : folders) {
    std::vector<std::string> names;
    names.reserve(folder.servers.size());
    for (const auto& id : folder.servers) names.push_back(nameOf(id, servers));
    rows.push_back({visible(folder.path), names.empty() ? "every server" : joined(names, ", "),
                    indexState(folder)});
  }
  return table(rows);
}

std::string requests(const CommandPending& pending) {
  std::string text;
  for (const auto& request : pending.requests) text += requestLine(request);
  if (text.empty()) return "No request waits for your approval.\n";
  if (pending.omitted > 0) text += formatText("… and {} more\n", pending.omitted);
  return text;
}

std::string log(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += visible(line) + "\n";
  return text;
}

}  // namespace zephyl::commandOutput
