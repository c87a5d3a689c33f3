#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zephyl {

/// What `zephyl-tailnet` announces in its output.
enum class TailnetMarker {
  tunnel,          ///< "data tunnel on ": the tunnel's address; a leading scheme is stripped
  controlPlane,    ///< "verified control plane via ": the relay
  targetResolved,  ///< "target resolved to ": the server's web address
  serverName,      ///< "server name: "
  serverAccent,    ///< "server accent: "
  targetUnresolved,
  joined,
  enrolmentFailed,
};

struct TailnetAnnouncement {
  TailnetMarker marker;
  std::string value;  ///< the rest of the line, trimmed, without control characters

  bool operator==(const TailnetAnnouncement&) const = default;
};

/// Every announcement that a line of output holds, in the order of the enumeration. Pure.
std::vector<TailnetAnnouncement> findAnnouncements(std::string_view line);

/// A line of output as the log keeps it: tagged, and cut after the phrase "found Zephyl". Pure.
std::string logLineOf(std::string_view line, std::string_view tag);

}  // namespace zephyl
