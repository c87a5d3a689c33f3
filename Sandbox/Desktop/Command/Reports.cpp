#include "Desktop/Command/Reports.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <boost/json.hpp>
#include <fmt/format.h>

#include "Common/Text.hpp"
#include "Desktop/Command/Fields.hpp"
#include "Desktop/Command/Table.hpp"

namespace zephyl::sandbox::desktop {
namespace json = boost::json;
namespace {

constexpr std::size_t shortIdLength = 8;
constexpr std::size_t indentation = 2;

const json::object& objectOf(const json::value& value) {
  static const json::object none;
  return value.is_object() ? value.get_object() : none;
}

std::string_view yesOrNo(bool flag) {
  return flag ? "yes" : "no";
}

std::string joined(std::string text, std::string_view separator, std::string_view more) {
  if (more.empty()) return text;
  if (!text.empty()) text += separator;
  return text.append(more);
}

/// As short as it can be and still tell the servers apart.
std::string shortId(const std::string& id, const json::array& servers) {
  for (auto length = shortIdLength; length < id.size(); ++length) {
    const auto prefix = std::string_view(id).substr(0, length);
    const auto same = std::count_if(servers.begin(), servers.end(), [&](const json::value& other) {
      return textField(objectOf(other), "id").starts_with(prefix);
    });
    if (same <= 1) return std::string(prefix);
  }
  return id;
}

std::string stateOf(const json::object& server) {
  if (!flagField(server, "enabled")) return "disabled";
  if (flagField(server, "enrolled")) return "connected";
  if (flagField(server, "running")) return "network up";
  return flagField(server, "usesTailnet") ? "network down" : "not connected";
}

std::string troubleOf(const json::object& server) {
  std::string trouble;
  for (const auto* key : {"enrolError", "tailnetStalled", "agentError"}) {
    trouble = joined(trouble, "; ", textField(server, key));
  }
  const auto unresolved = textField(server, "addressUnresolved");
  return unresolved.empty() ? trouble : joined(trouble, "; ", "cannot resolve " + unresolved);
}

std::string nameOf(const json::value& id, const json::array& servers) {
  for (const auto& server : servers) {
    const auto* known = objectOf(server).if_contains("id");
    if (known && *known == id) return textField(objectOf(server), "name");
  }
  return id.is_string() ? std::string(id.get_string()) : std::string();
}

std::string scalarText(const json::value& value) {
  if (value.is_null()) return "none";
  if (value.is_bool()) return std::string(yesOrNo(value.get_bool()));
  if (value.is_string()) return printable(std::string(value.get_string()));
  if (value.is_double()) return fmt::format("{:.15g}", value.get_double());
  return json::serialize(value);
}

bool isScalar(const json::value& value) {
  return !value.is_object() && !value.is_array();
}

bool isEmpty(const json::value& value) {
  return (value.is_object() && value.get_object().empty()) ||
         (value.is_array() && value.get_array().empty());
}

void outline(const json::value& value, std::size_t indent, std::string& text);

void outlineObject(const json::object& object, std::size_t indent, std::string& text) {
  std::size_t widest = 0;
  for (const auto& field : object) widest = std::max(widest, field.key().size());
  for (const auto& field : object) {
    const std::string key = printable(std::string_view(field.key().data(), field.key().size()));
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

void outlineArray(const json::array& array, std::size_t indent, std::string& text) {
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

void outline(const json::value& value, std::size_t indent, std::string& text) {
  if (value.is_object()) {
    outlineObject(value.get_object(), indent, text);
  } else if (value.is_array()) {
    outlineArray(value.get_array(), indent, text);
  } else {
    text += std::string(indent, ' ') + scalarText(value) + '\n';
  }
}

}  // namespace

std::string statusReport(const json::object& status) {
  json::object shown{{"tailnet programs", flagField(status, "available") ? "found" : "missing"},
                     {"joined a server", flagField(status, "enrolled")},
                     {"tailnet running", flagField(status, "running")}};
  const auto showIfThere = [&](std::string_view label, std::string_view key) {
    if (auto value = textField(status, key); !value.empty()) shown[label] = value;
  };
  showIfThere("web address", "url");
  showIfThere("relay", "relay");
  showIfThere("wants to see", "request");
  return outline(shown);
}

std::string serversReport(const json::array& servers) {
  Table table({"ID", "NAME", "COLOUR", "STATE", "ADDRESS", "RELAY", "TROUBLE"});
  for (const auto& value : servers) {
    const auto& server = objectOf(value);
    auto address = textField(server, "webUrl");
    if (address.empty()) address = textField(server, "boundAddress");
    table.add({shortId(textField(server, "id"), servers), textField(server, "name"),
               textField(server, "accent"), stateOf(server), address, textField(server, "relay"),
               troubleOf(server)});
  }
  return table.text();
}

std::string foldersReport(const json::array& roots, const json::array& servers) {
  Table table({"FOLDER", "NAME", "SHARED WITH"});
  for (const auto& value : roots) {
    const auto& root = objectOf(value);
    std::string sharedWith;
    for (const auto& id : listField(root, "servers")) {
      sharedWith = joined(sharedWith, ", ", nameOf(id, servers));
    }
    table.add({textField(root, "root"), textField(root, "name"),
               sharedWith.empty() ? "every server" : sharedWith});
  }
  return table.text();
}

std::string outline(const json::value& value) {
  std::string text;
  outline(value, 0, text);
  return text;
}

}  // namespace zephyl::sandbox::desktop
