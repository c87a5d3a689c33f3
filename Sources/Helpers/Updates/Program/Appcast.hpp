#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Result.hpp"

namespace zephyl {

/// One release of an appcast. Absent fields are empty.
struct AppcastItem {
  std::string version;
  std::string shortVersionString;
  std::string minimumSystemVersion;
  std::string channel;
  std::string description;
  std::optional<std::chrono::sys_seconds> published;
  std::optional<std::chrono::seconds> phasedRolloutInterval;
  bool critical = false;

  struct Enclosure {
    std::string url;
    std::string type;
    std::string architecture;
    std::string sha256;
    std::string signature;
    std::int64_t length = 0;  ///< 0: not stated

    bool operator==(const Enclosure&) const = default;
  };
  std::vector<Enclosure> enclosures;  ///< one for each architecture

  bool operator==(const AppcastItem&) const = default;
};

struct Appcast {
  std::optional<std::chrono::sys_seconds> date;  ///< "lastBuildDate": when the feed was signed
  std::vector<AppcastItem> items;
};

/// Reads an appcast: RSS whose channel has an element "lastBuildDate", and whose items have,
/// besides "pubDate" and "description", elements "version", "shortVersionString",
/// "minimumSystemVersion", "channel", "phasedRolloutInterval" (seconds) and "criticalUpdate", and
/// whose enclosures have the attributes "url", "length", "type", "architecture", "sha256" and
/// "edSignature". Version and short version may be attributes of the enclosure instead. Only the
/// part of a name behind a namespace's colon counts. Pure.
Result<Appcast> parseAppcast(std::string_view xml);

}  // namespace zephyl
