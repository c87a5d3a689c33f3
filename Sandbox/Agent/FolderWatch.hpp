#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::sandbox {

struct FolderChange {
  enum class Kind {
    fileTouched,        ///< added or written to
    fileGone,           ///< removed
    directoryAppeared,  ///< added, with its content
    directoryGone,      ///< removed, with its content
    rootGone,           ///< the folder itself was removed
    eventsLost,         ///< too many at once: the folder must be walked again
  };
  Kind kind;
  /// Relative to the folder.
  std::string path;
};

/// Watches the directories of one folder for changes through inotify. Paths are relative to the
/// folder, "" is the folder itself. Changes in a
/// directory for which the kernel grants no watch are not reported.
class FolderWatch {
 public:
  FolderWatch();

  /// Readable when there are changes to read; -1 when the system gives no descriptor.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

  /// Returns false when the directory cannot be watched.
  bool watch(const std::string& directory, const std::string& absolutePath);

  /// Stops watching a directory and all below it.
  void forget(const std::string& directory);

  /// Returns what happened since the last call. Does not block.
  std::vector<FolderChange> read();

 private:
  void translate(int watch, unsigned mask, std::string_view name,
                 std::vector<FolderChange>& changes);

  FileDescriptor descriptor_;
  std::unordered_map<int, std::string> directories_;
  std::map<std::string, int> watches_;
};

/// "directory/name", or just the name in the folder itself.
std::string within(const std::string& directory, std::string_view name);

/// The range of an ordered container of paths that lies in the directory, at every depth.
template <typename Paths>
auto contentOf(Paths& paths, const std::string& directory) {
  if (directory.empty()) return std::pair(paths.begin(), paths.end());
  constexpr char afterSlash = '/' + 1;
  return std::pair(paths.lower_bound(directory + '/'), paths.lower_bound(directory + afterSlash));
}

}  // namespace zephyl::sandbox
