#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zephyl {

/// The parts of an absolute or relative URL that the tray uses. A value.
struct URL {
  std::string scheme;               ///< as written, without the colon; empty if absent
  std::string host;                 ///< as written, an IPv6 address in brackets; empty if absent
  std::optional<std::string> port;  ///< as written; nullopt if absent or empty
  std::string path;                 ///< without query and fragment

  /// Returns nullopt if `text` is not a URL.
  static std::optional<URL> parse(std::string_view text);

  /// Returns host, or host:port if the URL names a port.
  [[nodiscard]] std::string authority() const;

  bool operator==(const URL&) const = default;
};

}  // namespace zephyl
