#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zephyl::sandbox {

struct FolderChange {
  enum class Kind {
    fileTouched,        ///< came, or was written to
    fileGone,           ///< went
    directoryAppeared,  ///< came, with whatever it holds
    directoryGone,      ///< went, with all it held
    rootGone,           ///< the folder itself went
    eventsLost,         ///< too much happened at once: only looking again helps
  };
  Kind kind;
  /// Relative to the folder.
  std::string path;
};

/// Watches the directories of one folder for changes through inotify. Paths are relative to the
/// folder, "" is the folder itself. Where the kernel grants no watch, changes go unseen.
class FolderWatch {
 public:
  FolderWatch();
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  /// Readable when there are changes to read; -1 when there is no watching at all.
  int descriptor() const { return descriptor_; }

  /// False when the directory cannot be watched.
  bool watch(const std::string& directory, const std::string& absolutePath);

  /// Stops watching a directory and all below it.
  void forget(const std::string& directory);

  /// What happened since the last call; never blocks.
  std::vector<FolderChange> read();

 private:
  void translate(int watch, unsigned mask, std::string_view name,
                 std::vector<FolderChange>& changes);

  int descriptor_;
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
