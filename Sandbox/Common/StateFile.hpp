#pragma once

#include <optional>
#include <string>

#include "System/Data/JSON.hpp"

namespace zephyl::sandbox {

/// A JSON file in a stand-in's state directory. Only the user can read it (0600), and it is
/// replaced atomically, so that a reader gets either the old or the new content.
class StateFile {
 public:
  /// Creates the directory, for the user only (0700), unless it exists.
  static Result<StateFile> open(const std::string& directory, std::string_view name);

  [[nodiscard]] bool exists() const;

  /// Returns the content; nullopt if there is no file. A file that cannot be decoded is renamed to
  /// "<name>.unreadable", which is logged, and nullopt is returned.
  template <typename T>
  std::optional<T> load() const {
    if (!exists()) return std::nullopt;
    const auto text = read();
    auto content = text ? json::decodeText<T>(*text) : Result<T>(text.error());
    if (content) return *std::move(content);
    setAside(content.error());
    return std::nullopt;
  }

  [[nodiscard]] Result<void> save(const json::Value& content) const;

 private:
  explicit StateFile(std::string path) : path_(std::move(path)) {}

  [[nodiscard]] Result<std::string> read() const;
  void setAside(const Error& reason) const;

  std::string path_;
};

}  // namespace zephyl::sandbox
