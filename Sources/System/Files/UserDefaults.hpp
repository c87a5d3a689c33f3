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

/// A per-user store of named settings in one JSON file: <configuration
/// directory>/<domain>/defaults.json. Every read checks whether the file has changed, so a change
/// by another program takes effect at once. Unknown keys are kept on writing.
///
/// A file that exists and cannot be read or decoded counts as empty. It is copied aside before the
/// first write that would replace it. If reading fails for lack of descriptors or memory, values
/// count as absent, and changes fail. Failed changes do not touch the files.
///
/// Changes of several processes are serialized, so that no change is lost. A change waits for
/// another process for at most `patience` of real time and then continues, because that process may
/// be stopped. Callable from any thread.
class UserDefaults {
 public:
  using Values = boost::json::object;
  static constexpr std::chrono::milliseconds patience{500};

  explicit UserDefaults(std::string domain) : domain_(std::move(domain)) {}

  /// Returns nullopt if the value is absent or not a 64-bit integer.
  [[nodiscard]] std::optional<std::int64_t> integer(const std::string& key) const;
  /// Returns nullopt if the value is absent or not a string.
  [[nodiscard]] std::optional<std::string> string(const std::string& key) const;

  /// Returns all values, or an empty object if there is no file. Returns an error if the file
  /// cannot be read or decoded.
  [[nodiscard]] Result<Values> values() const;
  /// Calls `edit` with the values and saves them if they have changed.
  Result<void> change(const std::function<void(Values&)>& edit);

  /// These two functions log failures.
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
