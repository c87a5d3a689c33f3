#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <boost/json/object.hpp>

#include <sys/stat.h>

#include "System/Data/Result.hpp"

namespace zephyl {

/// Reads a file that contains a JSON object, and caches the object until the file changes. Reading
/// an unchanged file costs one system call. Callable from any thread.
///
/// Must not be destroyed at the end of the process: the memory resource of Boost.JSON, which the
/// cached object needs, may be destroyed before.
class JSONFile {
 public:
  using Contents = std::shared_ptr<const boost::json::object>;

  /// Returns the object in the file at `path`. Returns an error, which is not cached, if the file
  /// cannot be read or does not contain a JSON object.
  Result<Contents> read(const std::string& path);

 private:
  struct Cached {
    std::string path;
    struct stat status;
    Contents contents;
  };

  std::mutex mutex_;
  std::optional<Cached> cached_;
};

}  // namespace zephyl
