#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <boost/json/object.hpp>

#include "System/Data/Result.hpp"
#include "System/Files/JSONFile.hpp"

namespace zephyl {

/// A per-user store of named settings, kept in one JSON file: <configuration
/// directory>/<domain>/defaults.json. Every read checks whether the file has changed, so a change
/// by another program counts at once. Keys that this program does not know are kept on writing.
///
/// A file that exists and cannot be read or decoded counts as empty, and is copied aside before
/// the first write that would replace it. Writes that fail change nothing.
///
/// Changes of several processes follow each other, so that none is lost. A change waits for another
/// process for `patience` of real time at most, and then goes on: that process may have been
/// stopped. Callable from any thread.
class UserDefaults {
 public:
  using Values = boost::json::object;
  static constexpr std::chrono::milliseconds patience{500};

  explicit UserDefaults(std::string domain) : domain_(std::move(domain)) {}

  /// Returns nullopt if the value is absent or not a 64-bit integer.
  [[nodiscard]] std::optional<std::int64_t> integer(const std::string& key) const;
  /// None when the value is absent or no string.
  [[nodiscard]] std::optional<std::string> string(const std::string& key) const;

  /// All values; empty if there is no file. An error if the file cannot be read or decoded.
  [[nodiscard]] Result<Values> values() const;
  /// Changes the values and saves them, unless they stay the same.
  Result<void> change(const std::function<void(Values&)>& edit);

  /// Failures of these two are logged.
  void setString(const std::string& key, const std::string& value);
  void remove(const std::string& key);

  [[nodiscard]] std::string path() const;

 private:
  template <typename T>
  [[nodiscard]] std::optional<T> read(const std::string& key) const;
  void changeOrLog(const std::function<void(Values&)>& edit);

  const std::string domain_;
  std::mutex changing_;
  mutable JSONFile file_;
};

}  // namespace zephyl
