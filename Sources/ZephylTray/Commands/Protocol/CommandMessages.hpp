#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

#include "System/Data/JSON.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"

/// The messages between `zephyl-tray VERB` and the running tray, one JSON object a line, over a
/// local socket. The client sends one request per connection and keeps its side open until it has
/// received the answer. The tray answers with these lines:
///
///     {"accepted": true}      the main thread has received the request; a result follows
///     {"event": VALUE}        one of any number of values, for `watch` and `logs --follow`
///     {"result": VALUE}       last line: the request succeeded
///     {"error": "MESSAGE"}    last line: the request failed
///
/// The first line is sent as soon as the main thread of the tray runs.
namespace zephyl {

namespace commandRequests {

struct Status {};
BOOST_DESCRIBE_STRUCT(Status, (), ())

struct Servers {};
BOOST_DESCRIBE_STRUCT(Servers, (), ())

struct Folders {};
BOOST_DESCRIBE_STRUCT(Folders, (), ())

/// The requests that await approval.
struct Requests {};
BOOST_DESCRIBE_STRUCT(Requests, (), ())

struct Diagnostics {};
BOOST_DESCRIBE_STRUCT(Diagnostics, (), ())

struct Logs {
  std::optional<std::string> server;  ///< nullopt: the agent's log
  bool follow = false;
};
BOOST_DESCRIBE_STRUCT(Logs, (), (server, follow))

enum class Decision { deny, once, always };
BOOST_DESCRIBE_ENUM(Decision, deny, once, always)

struct Answer {
  std::string id;
  Decision decision = Decision::deny;
  std::optional<std::string> confirm;  ///< the phrase that the user typed, for `always`
};
BOOST_DESCRIBE_STRUCT(Answer, (), (id, decision, confirm))

struct Join {
  SecretString value;
};
BOOST_DESCRIBE_STRUCT(Join, (), (value))

struct Open {
  std::optional<std::string> screen;
};
BOOST_DESCRIBE_STRUCT(Open, (), (screen))

struct RestartAgent {};
BOOST_DESCRIBE_STRUCT(RestartAgent, (), ())

struct RestartTailnet {
  std::optional<std::string> server;  ///< nullopt: all servers
};
BOOST_DESCRIBE_STRUCT(RestartTailnet, (), (server))

struct Quit {};
BOOST_DESCRIBE_STRUCT(Quit, (), ())

struct Watch {};
BOOST_DESCRIBE_STRUCT(Watch, (), ())

}  // namespace commandRequests

using CommandRequest =
    std::variant<commandRequests::Status, commandRequests::Servers, commandRequests::Folders,
                 commandRequests::Requests, commandRequests::Diagnostics, commandRequests::Logs,
                 commandRequests::Answer, commandRequests::Join, commandRequests::Open,
                 commandRequests::RestartAgent, commandRequests::RestartTailnet,
                 commandRequests::Quit, commandRequests::Watch>;

namespace commandRequests {

constexpr std::array<std::string_view, 13> messageNames(const CommandRequest*) {
  return {"status", "servers", "folders",      "requests",       "diagnostics", "logs", "answer",
          "join",   "open",    "restartAgent", "restartTailnet", "quit",        "watch"};
}
constexpr auto fieldsWithDefault(const Logs*) {
  return std::tuple(&Logs::follow);
}

}  // namespace commandRequests

/// The maximum size of a request in bytes, including its end of line.
inline constexpr std::size_t maxCommandRequest = 65536;

/// Parses a line of a client. The error is fit for the client's user. Pure.
Result<CommandRequest> parseCommandRequest(std::string_view line);

/// Returns the line of a request, with its end. It may contain a secret. Pure.
SecretString encodeCommandRequest(const CommandRequest& request);

/// A line from the tray.
struct CommandReply {
  enum class Kind { accepted, event, result, error };

  Kind kind = Kind::accepted;
  json::Value value;  ///< the message of `error`; null for `accepted`

  /// Returns whether no other line follows.
  [[nodiscard]] bool isLast() const { return kind == Kind::result || kind == Kind::error; }
};

/// Returns the line without its end. Pure, as is the next function.
std::string encodeCommandReply(const CommandReply& reply);
Result<CommandReply> parseCommandReply(std::string_view line);

}  // namespace zephyl
