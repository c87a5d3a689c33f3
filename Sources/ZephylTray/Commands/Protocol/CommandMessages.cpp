#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"

#include <algorithm>
#include <utility>

namespace zephyl {

namespace {

constexpr std::array<std::string_view, 4> replyNames{"accepted", "event", "result", "error"};

}  // namespace

Result<CommandRequest> parseCommandRequest(std::string_view line) {
  auto request = json::decodeText<CommandRequest>(line);
  if (request) return request;
  return Error{"The running tray does not understand this command (", request.error().message,
               "). If Zephyl was updated, restart the tray."};
}

SecretString encodeCommandRequest(const CommandRequest& request) {
  std::string text = json::compact(json::encode(request));
  SecretString line(text);
  wipe(text);
  line.append("\n");
  return line;
}

std::string encodeCommandReply(const CommandReply& reply) {
  json::Object object;
  const bool isAccepted = reply.kind == CommandReply::Kind::accepted;
  object.emplace(replyNames[static_cast<std::size_t>(reply.kind)],
                 isAccepted ? json::Value(true) : reply.value);
  return json::compact(object);
}

Result<CommandReply> parseCommandReply(std::string_view line) {
  auto value = json::parse(line);
  if (!value) return value.error();
  auto* const object = value->if_object();
  if (object == nullptr || object->size() != 1) return Error{"not a reply"};
  auto& [key, content] = *object->begin();
  const auto found = std::ranges::find(replyNames, std::string_view(key));
  if (found == replyNames.end()) return Error{"not a known reply"};
  CommandReply reply{.kind = static_cast<CommandReply::Kind>(found - replyNames.begin())};
  if (reply.kind == CommandReply::Kind::error && !content.is_string()) return Error{"no message"};
  if (reply.kind != CommandReply::Kind::accepted) reply.value = std::move(content);
  return reply;
}

}  // namespace zephyl
