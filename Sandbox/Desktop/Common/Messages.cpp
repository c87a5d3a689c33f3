#include "Desktop/Common/Messages.hpp"

#include <algorithm>
#include <utility>

#include <boost/json.hpp>

namespace zephyl::sandbox::desktop {
namespace json = boost::json;
namespace {

std::string toJson(const Request& request) {
  json::object message{{"method", request.method}, {"path", request.path}};
  if (!request.body.empty()) message["body"] = request.body;
  return json::serialize(message);
}

std::string toJson(Watch) {
  return json::serialize(json::object{{"watch", "requests"}});
}

/// None when the line is no JSON object.
std::optional<json::object> parseObject(std::string_view line) {
  boost::system::error_code error;
  auto value = json::parse(line, error);
  if (error || !value.is_object()) return std::nullopt;
  return std::move(value.get_object());
}

std::optional<std::string> text(const json::object& message, std::string_view key) {
  const auto* value = message.if_contains(key);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

bool isWord(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte > 0x20 && byte != 0x7F;
  });
}

/// A message of the window; its "error" is the failure.
Result<json::object> parseMessage(std::string_view line) {
  auto message = parseObject(line);
  if (!message) return Failure{"the window's answer makes no sense"};
  if (const auto error = text(*message, "error")) return Failure{*error};
  return *std::move(message);
}

}  // namespace

std::string toLine(const Command& command) {
  return std::visit([](const auto& value) { return toJson(value); }, command);
}

std::string toLine(const Answer& answer) {
  return json::serialize(json::object{{"status", answer.status}, {"body", answer.body}});
}

std::string toLine(const Failure& failure) {
  return json::serialize(json::object{{"error", failure.message}});
}

std::string routeLine(std::string_view route) {
  return json::serialize(json::object{{"request", route}});
}

Result<Command> parseCommand(std::string_view line) {
  const auto message = parseObject(line);
  if (!message) return Failure{"the command is no JSON object"};
  if (text(*message, "watch") == "requests") return Command(Watch{});
  auto method = text(*message, "method");
  auto path = text(*message, "path");
  if (!method || !path) return Failure{"the command is incomplete"};
  if (!isWord(*method) || !isWord(*path) || !path->starts_with('/')) {
    return Failure{"the command's method or path makes no sense"};
  }
  return Command(Request{.method = *std::move(method),
                         .path = *std::move(path),
                         .body = text(*message, "body").value_or("")});
}

Result<Answer> parseAnswer(std::string_view line) {
  const auto message = parseMessage(line);
  if (!message) return message.error();
  const auto* status = message->if_contains("status");
  auto body = text(*message, "body");
  if (!status || !status->is_int64() || !body) return Failure{"the window's answer is incomplete"};
  return Answer{.status = static_cast<int>(status->get_int64()), .body = *std::move(body)};
}

Result<std::string> parseRoute(std::string_view line) {
  const auto message = parseMessage(line);
  if (!message) return message.error();
  auto route = text(*message, "request");
  if (!route) return Failure{"the window's answer is incomplete"};
  return *std::move(route);
}

}  // namespace zephyl::sandbox::desktop
