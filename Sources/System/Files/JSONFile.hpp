#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <boost/json/object.hpp>

#include <sys/stat.h>

#include "System/Data/Result.hpp"

namespace zephyl {

/// Reads a file that holds a JSON object, and keeps what it read until the file changes. A read of
/// an unchanged file costs one system call. Callable from any thread.
class JSONFile {
 public:
  using Contents = std::shared_ptr<const boost::json::object>;

  /// Returns the object in the file at `path`. An error if the file cannot be read or holds
  /// anything but a JSON object. Errors are not kept.
  Result<Contents> read(const std::string& path);

 private:
  struct Kept {
    std::string path;
    struct stat status;
    Contents contents;
  };

  std::mutex mutex_;
  std::optional<Kept> kept_;
};

}  // namespace zephyl
