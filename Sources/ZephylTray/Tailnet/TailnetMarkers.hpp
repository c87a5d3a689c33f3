#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zephyl {

/// An announcement in the output of `zephyl-tailnet`.
enum class TailnetMarker {
  tunnel,          ///< "data tunnel on ": the tunnel's address, without a leading scheme
  controlPlane,    ///< "verified control plane via ": the relay
  targetResolved,  ///< "target resolved to ": the server's web address
  serverName,      ///< "server name: "
  serverAccent,    ///< "server accent: "
  targetUnresolved,
  joined,
  enrolmentFailed,
};

/// One announcement and its value.
struct TailnetAnnouncement {
  TailnetMarker marker;
  std::string value;  ///< the rest of the line, trimmed, without control characters

  bool operator==(const TailnetAnnouncement&) const = default;
};

/// Returns all announcements in a line of output, in the order of the enumeration. Pure.
std::vector<TailnetAnnouncement> findAnnouncements(std::string_view line);

/// Returns a line of output in its form for the log: tagged, and cut after the phrase "found
/// Zephyl". Pure.
std::string logLineOf(std::string_view line, std::string_view tag);

}  // namespace zephyl
