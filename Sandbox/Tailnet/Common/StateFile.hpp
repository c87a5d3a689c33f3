#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

#include "Common/Result.hpp"

namespace zephyl::sandbox {

/// One JSON object in a state directory: private to the user (0600) and replaced atomically, so
/// that a reader sees the old or the new one, never half of one.
class StateFile {
 public:
  StateFile(std::string_view directory, std::string_view name);

  /// None when there is no file. One that cannot be understood is set aside, as its name with
  /// ".unreadable", with a line in the log, and counts as none.
  std::optional<boost::json::object> load() const;

  Result<void> save(const boost::json::object& content) const;

 private:
  std::string path_;
};

}  // namespace zephyl::sandbox
