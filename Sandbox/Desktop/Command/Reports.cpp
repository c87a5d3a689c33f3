#include "Desktop/Command/Reports.hpp"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

#include "Desktop/Client/ServerState.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr std::size_t minIdLength = 8;
constexpr std::size_t indentation = 2;
constexpr std::size_t columnGap = 2;

using Row = std::vector<std::string>;

/// Returns the width of a text, assuming one column per character.
std::size_t widthOf(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char byte) { return (static_cast<unsigned char>(byte) >> 6U) != 2; }));
}

std::string padded(const std::string& text, std::size_t columns) {
  return text + std::string(columns - std::min(columns, widthOf(text)), ' ');
}

/// Returns the width of a column of a table; 0 if all cells below its heading are empty.
std::size_t columnWidth(const std::vector<Row>& rows, std::size_t column) {
  std::size_t width = 0;
  for (const auto& row : std::span(rows).subspan(1)) {
    width = std::max(width, widthOf(row[column]));
  }
  return width == 0 ? 0 : std::max(width, widthOf(rows.front()[column]));
}

/// Formats a table whose first row is the heading. Omits empty columns, and makes control
/// characters visible.
std::string tableText(std::vector<Row> rows) {
  std::vector<std::string> lines(rows.size());
  for (auto& row : rows) std::ranges::transform(row, row.begin(), visible);
  for (std::size_t column = 0; column < rows.front().size(); ++column) {
    const auto width = columnWidth(rows, column);
    if (width == 0) continue;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      lines[i] += padded(rows[i][column], width + columnGap);
    }
  }
  std::string text;
  for (const auto& line : lines) text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  return text;
}

std::string_view yesOrNo(bool flag) {
  return flag ? "yes" : "no";
}

std::string joined(std::string text, std::string_view separator, std::string_view more) {
  if (more.empty()) return text;
  if (!text.empty()) text += separator;
  return text.append(more);
}

/// Returns the shortest unambiguous prefix of the server's id.
std::string shortId(const std::string& id, const std::vector<ServerEntry>& servers) {
  for (auto length = minIdLength; length < id.size(); ++length) {
    const auto prefix = std::string_view(id).substr(0, length);
    const auto same = std::ranges::count_if(
        servers, [&](const ServerEntry& other) { return other.id.starts_with(prefix); });
    if (same <= 1) return std::string(prefix);
  }
  return id;
}

std::string troubleOf(const ServerEntry& server) {
  std::string trouble;
  for (const auto& problem : problemsOf(server)) trouble = joined(trouble, "; ", problem.reason);
  return trouble;
}

std::string nameOf(const std::string& id, const std::vector<ServerEntry>& servers) {
  const auto server = std::ranges::find(servers, id, &ServerEntry::id);
  return server == servers.end() ? id : server->name;
}

std::string scalarText(const json::Value& value) {
  if (value.is_null()) return "none";
  if (value.is_bool()) return std::string(yesOrNo(value.get_bool()));
  if (value.is_string()) return visible(std::string(value.get_string()));
  if (value.is_double()) return formatText("{:.15g}", value.get_double());
  return json::compact(value);
}

bool isScalar(const json::Value& value) {
  return !value.is_object() && !value.is_array();
}

bool isEmpty(const json::Value& value) {
  return (value.is_object() && value.get_object().empty()) ||
         (value.is_array() && value.get_array().empty());
}

void outline(const json::Value& value, std::size_t indent, std::string& text);

void outlineObject(const json::Object& object, std::size_t indent, std::string& text) {
  std::size_t widest = 0;
  for (const auto& field : object) widest = std::max(widest, field.key().size());
  for (const auto& field : object) {
    const std::string key = visible(std::string_view(field.key().data(), field.key().size()));
    text.append(indent, ' ');
    if (isScalar(field.value()) || isEmpty(field.value())) {
      const auto shown = isEmpty(field.value()) ? "none" : scalarText(field.value());
      text += padded(key, widest + indentation) + shown + '\n';
    } else {
      text += key + '\n';
      outline(field.value(), indent + indentation, text);
    }
  }
}

void outlineArray(const json::Array& array, std::size_t indent, std::string& text) {
  for (const auto& element : array) {
    const auto start = text.size();
    if (isScalar(element) || isEmpty(element)) {
      text += std::string(indent + indentation, ' ') +
              (isEmpty(element) ? "none" : scalarText(element)) + '\n';
    } else {
      outline(element, indent + indentation, text);
    }
    text[start + indent] = '-';
  }
}

void outline(const json::Value& value, std::size_t indent, std::string& text) {
  if (value.is_object()) {
    outlineObject(value.get_object(), indent, text);
  } else if (value.is_array()) {
    outlineArray(value.get_array(), indent, text);
  } else {
    text += std::string(indent, ' ') + scalarText(value) + '\n';
  }
}

}  // namespace

std::string statusReport(const TrayStatus& status) {
  json::Object shown{{"tailnet programs", status.available ? "found" : "missing"},
                     {"joined a server", status.enrolled},
                     {"tailnet running", status.running}};
  if (status.url) shown["web address"] = *status.url;
  if (status.relay) shown["relay"] = *status.relay;
  if (status.request) shown["wants to see"] = *status.request;
  return outline(shown);
}

std::string serversReport(const std::vector<ServerEntry>& servers) {
  std::vector<Row> rows{{"ID", "NAME", "COLOR", "STATE", "ADDRESS", "RELAY", "TROUBLE"}};
  for (const auto& server : servers) {
    const auto address = server.webUrl ? server.webUrl : server.boundAddress;
    rows.push_back({shortId(server.id, servers), server.name, server.accent,
                    std::string(wordsFor(stateOf(server))), address.value_or(""),
                    server.relay.value_or(""), troubleOf(server)});
  }
  return tableText(std::move(rows));
}

std::string foldersReport(const std::vector<FolderEntry>& folders,
                          const std::vector<ServerEntry>& servers) {
  std::vector<Row> rows{{"FOLDER", "NAME", "SHARED WITH"}};
  for (const auto& folder : folders) {
    std::string sharedWith;
    for (const auto& id : folder.servers.value_or(std::vector<std::string>())) {
      sharedWith = joined(sharedWith, ", ", nameOf(id, servers));
    }
    rows.push_back({folder.root, folder.name, sharedWith.empty() ? "every server" : sharedWith});
  }
  return tableText(std::move(rows));
}

std::string outline(const json::Value& value) {
  std::string text;
  outline(value, 0, text);
  return text;
}

}  // namespace zephyl::sandbox::desktop
