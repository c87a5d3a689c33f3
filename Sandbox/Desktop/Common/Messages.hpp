#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Common/Result.hpp"

/// What a command and the window say to each other on the window's local socket. A JSON object on
/// a line asks, once per connection; a JSON object on a line answers.
///
///     {"method":"POST","path":"/invite","body":"{...}"}     {"status":200,"body":"{...}"}
///     {"watch":"requests"}                                  {"request":"join"}, again and again
///     anything that could not be done                       {"error":"..."}
namespace zephyl::sandbox::desktop {

/// The end of the line included.
constexpr std::size_t mostCommandBytes = 131'072;
constexpr std::size_t mostAnswerBytes = 134'217'728;

/// A request to the tray's control API.
struct Request {
  std::string method;
  std::string path;
  /// JSON; empty for none.
  std::string body;
};

/// What the control API answered: its status and its JSON, as it came.
struct Answer {
  int status = 0;
  std::string body;
};

/// Wants the tray's "request" routes as they are handed out.
struct Watch {};

using Command = std::variant<Request, Watch>;

// Lines, without their ends.
std::string toLine(const Command& command);
std::string toLine(const Answer& answer);
std::string toLine(const Failure& failure);
std::string routeLine(std::string_view route);

/// A path with anything in it that does not belong into the first line of a request is a failure.
Result<Command> parseCommand(std::string_view line);
/// The failure is the other side's as well.
Result<Answer> parseAnswer(std::string_view line);
Result<std::string> parseRoute(std::string_view line);

}  // namespace zephyl::sandbox::desktop
