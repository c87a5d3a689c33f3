#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <boost/describe/class.hpp>

#include "System/Data/JSON.hpp"

/// What a command and the window say to each other on the window's local socket. A JSON object on
/// a line asks, once per connection; a JSON object on a line answers.
///
///     {"method":"POST","path":"/invite","body":"{...}"}     {"status":200,"body":"{...}"}
///     {"watch":"requests"}                                  {"request":"join"}, again and again
///     anything that could not be done                       {"error":"..."}
namespace zephyl::sandbox::desktop {

/// The end of the line included.
constexpr std::size_t maxCommandBytes = 131'072;
constexpr std::size_t maxReplyBytes = 134'217'728;

struct Command {
  std::optional<std::string> method = {};
  std::optional<std::string> path = {};
  std::optional<std::string> body = {};
  std::optional<std::string> watch = {};
};
BOOST_DESCRIBE_STRUCT(Command, (), (method, path, body, watch))

struct Reply {
  std::optional<std::int64_t> status = {};
  std::optional<std::string> body = {};
  std::optional<std::string> request = {};
  std::optional<std::string> error = {};
};
BOOST_DESCRIBE_STRUCT(Reply, (), (status, body, request, error))

/// The window's socket: $ZEPHYL_SANDBOX_DESKTOP_SOCKET, else Zephyl/desktop.sock in $XDG_DATA_HOME
/// or ~/.local/share. An error when none of them is known.
Result<std::string> socketPath();

}  // namespace zephyl::sandbox::desktop
