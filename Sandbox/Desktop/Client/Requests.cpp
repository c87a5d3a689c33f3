#include "Desktop/Client/Requests.hpp"

#include "System/Data/Format.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr int okStatus = 200;

Request changeOf(const std::string& id, std::string_view property, const json::Object& body) {
  return {.method = "POST",
          .path = formatText("/servers/{}/{}", id, property),
          .body = json::compact(body)};
}

}  // namespace

Result<json::Value> contentOf(const Answer& answer) {
  auto content = json::parse(answer.body);
  if (!content || !content->is_object()) {
    return Error{formatText("the tray's answer {} is not a JSON object", answer.status)};
  }
  if (answer.status == okStatus) return content;
  const auto* message = content->get_object().if_contains("error");
  if (!message || !message->is_string()) {
    return Error{formatText("the tray answered {}", answer.status)};
  }
  return Error{std::string_view(message->get_string())};
}

Request getStatus() {
  return {.method = "GET", .path = statusPath};
}

Request getServers() {
  return {.method = "GET", .path = "/servers"};
}

Request getFolders() {
  return {.method = "GET", .path = "/roots"};
}

Request getDiagnostics() {
  return {.method = "GET", .path = "/diagnostics"};
}

Request joinServer(const std::string& inviteKey) {
  return {
      .method = "POST", .path = "/invite", .body = json::compact(json::Object{{"key", inviteKey}})};
}

Request renameServer(const std::string& id, const std::string& label) {
  return changeOf(id, "label", {{"label", label}});
}

Request setAccent(const std::string& id, const std::string& accent) {
  return changeOf(id, "accent", {{"accent", accent}});
}

Request setEnabled(const std::string& id, bool enabled) {
  return changeOf(id, "enabled", {{"enabled", enabled}});
}

Request removeServer(const std::string& id) {
  return {.method = "DELETE", .path = "/servers/" + id};
}

Request shareFolder(const std::string& id) {
  return {.method = "POST", .path = formatText("/servers/{}/roots", id)};
}

Request setFolderShared(const std::string& id, const std::string& root, bool shared) {
  return changeOf(id, "roots/scope", {{"root", root}, {"shared", shared}});
}

Request restartAgent() {
  return {.method = "POST", .path = "/agent/restart"};
}

}  // namespace zephyl::sandbox::desktop
