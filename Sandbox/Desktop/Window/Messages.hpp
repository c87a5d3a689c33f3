#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <boost/describe/class.hpp>

#include "System/Data/JSON.hpp"

/// The protocol between a command and the window on the window's local socket. A connection carries
/// one request. Requests and answers are JSON objects, one per line.
///
///     {"method":"POST","path":"/invite","body":"{...}"}     {"status":200,"body":"{...}"}
///     {"watch":"requests"}                                  {"request":"join"}, repeatedly
///     a request that failed                                 {"error":"..."}
namespace zephyl::sandbox::desktop {

/// Includes the end of the line.
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

/// Returns the path of the window's socket: $ZEPHYL_SANDBOX_DESKTOP_SOCKET, else
/// Zephyl/desktop.sock in $XDG_DATA_HOME or ~/.local/share. Fails if none of these is known.
Result<std::string> socketPath();

}  // namespace zephyl::sandbox::desktop
