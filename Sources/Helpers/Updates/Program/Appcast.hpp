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
    std::int64_t length = 0;  ///< 0 if absent

    bool operator==(const Enclosure&) const = default;
  };
  std::vector<Enclosure> enclosures;  ///< one for each architecture

  bool operator==(const AppcastItem&) const = default;
};

/// A parsed feed.
struct Appcast {
  std::optional<std::chrono::sys_seconds> date;  ///< "lastBuildDate", the date of the signature
  std::vector<AppcastItem> items;
};

/// Parses an appcast: RSS whose channel has an element "lastBuildDate". Its items have, besides
/// "pubDate" and "description", the elements "version", "shortVersionString",
/// "minimumSystemVersion", "channel", "phasedRolloutInterval" (seconds) and "criticalUpdate". Their
/// enclosures have the attributes "url", "length", "type", "architecture", "sha256" and
/// "edSignature". Version and short version may be attributes of the enclosure instead. Namespace
/// prefixes of names are ignored. Pure.
Result<Appcast> parseAppcast(std::string_view xml);

}  // namespace zephyl
