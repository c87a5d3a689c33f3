#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <boost/beast/core/basic_stream.hpp>

#include "Common/LocalSocket.hpp"

/// The protocol of the daemon's control socket, a local stream socket: a JSON object on a line
/// asks, a JSON object on a line answers, as often as the client likes.
///
///     {"op":"status"}     {"running":true,"node":"6f0c1e02-..."}
///     anything else       {"error":"..."}
namespace zephyl::sandbox::control {

using Stream = boost::beast::basic_stream<LocalProtocol>;

/// The end of the line included.
constexpr std::size_t mostLineBytes = 4096;
constexpr std::string_view statusRequest = "{\"op\":\"status\"}\n";

struct Status {
  bool running = false;
  /// The daemon's identity, stable for the life of its state.
  std::string node;
};

/// The line that answers the line. Neither carries the end of line.
std::string answer(std::string_view request, const Status& status);

/// None when the line is not the answer to a status request.
std::optional<Status> parseStatus(std::string_view line);

}  // namespace zephyl::sandbox::control
