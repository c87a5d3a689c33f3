#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zephyl {

/// The parts of an absolute or relative URL that the tray uses. A value.
struct URL {
  std::string scheme;  ///< as written, without the colon; empty when there is none
  std::string host;    ///< as written, an IPv6 address with its brackets; empty when there is none
  std::optional<std::string> port;  ///< as written; none when absent or empty
  std::string path;                 ///< without query and fragment

  /// None when `text` is not a URL.
  static std::optional<URL> parse(std::string_view text);

  /// host, or host:port when a port is named.
  [[nodiscard]] std::string authority() const;

  bool operator==(const URL&) const = default;
};

}  // namespace zephyl
