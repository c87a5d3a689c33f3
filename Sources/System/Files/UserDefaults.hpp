#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <boost/json/object.hpp>

namespace zephyl {

/// A per-user store of named settings, kept in one JSON file: <configuration
/// directory>/<domain>/defaults.json. The file is read afresh on every read, so what another
/// program writes counts at once; keys that this program does not know are kept on writing.
///
/// A file that exists and cannot be read or decoded counts as empty, and is copied aside before
/// the first write that would replace it. Writes that fail are logged, and change nothing.
/// Callable from any thread.
class UserDefaults {
 public:
  explicit UserDefaults(std::string domain) : domain_(std::move(domain)) {}

  /// None when the value is absent or no integer of 64 bits; a text or a truth value is none.
  [[nodiscard]] std::optional<std::int64_t> integer(const std::string& key) const;
  /// None when the value is absent or no string.
  [[nodiscard]] std::optional<std::string> string(const std::string& key) const;

  void setString(const std::string& key, const std::string& value);
  void remove(const std::string& key);

  [[nodiscard]] std::string path() const;

 private:
  using Values = boost::json::object;

  template <typename T>
  [[nodiscard]] std::optional<T> read(const std::string& key) const;
  void change(const std::function<void(Values&)>& edit);

  const std::string domain_;
  std::mutex changing_;
};

}  // namespace zephyl
