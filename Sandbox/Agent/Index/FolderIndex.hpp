#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::sandbox {

/// The state of the index of one folder at one moment.
struct IndexReport {
  std::string root;
  /// The folder was walked completely.
  bool ready = false;
  /// This report ends the first walk, or the first one after the folder was missing.
  bool walked = false;
  /// The folder does not exist.
  bool missing = false;
  std::int64_t files = 0;
  std::int64_t bytes = 0;
  /// The number of pieces into which the files would be cut for embedding.
  std::int64_t chunks = 0;

  // Changes since the previous report, after the first walk:
  /// Files that were added, removed or changed.
  std::int64_t changed = 0;
  /// The changed files among them, which existed before and still do.
  std::int64_t rewritten = 0;
  /// One of them, relative to the folder.
  std::string changedPath;
};

/// The index of one shared folder: its text files with their sizes. After a change the folder is
/// walked again, and only new or changed files are read. A search reads the files.
///
/// Not indexed are symbolic links and other files that are not regular, binary files (with a NUL in
/// the first 8 KiB), directories whose name begins with a dot, and output directories of tools
/// (node_modules, build, target and similar). At most 256 KiB of each file and 200 000 files are
/// indexed. Changes in directories that the kernel refuses to watch are not noticed.
///
/// A walk consists of small steps, so that the thread that owns the index stays responsive. Must be
/// used on one thread.
class FolderIndex {
 public:
  explicit FolderIndex(std::string root);

  /// Readable when the folder has changed; -1 if the system has no free descriptor.
  [[nodiscard]] int changesDescriptor() const { return watch_.get(); }

  /// Starts a walk. Earlier changes do not count as new ones.
  void restart();

  [[nodiscard]] bool hasWork() const { return !directories_.empty() || !files_.empty(); }

  /// Performs one step of the walk: one directory or one file.
  void step();

  [[nodiscard]] bool isMissing() const { return isMissing_; }

  /// Returns the current state. The next report counts changes since this one.
  IndexReport report();

  /// Returns the absolute paths of at most `maxFound` files that contain the word: a run of
  /// letters, digits and "_", ignoring the case of ASCII letters.
  [[nodiscard]] std::vector<std::string> find(std::string_view word, std::size_t maxFound) const;

 private:
  /// Identifies the content of a file without reading it, to detect changes since an earlier walk.
  struct Stamp {
    std::int64_t bytes = 0;
    std::int64_t inode = 0;
    std::int64_t changedNanoseconds = 0;
    bool operator==(const Stamp&) const = default;
  };
  struct File {
    Stamp stamp;
    bool isText = false;
    std::size_t contentHash = 0;
    unsigned walk = 0;
  };

  [[nodiscard]] std::string absolute(const std::string& path) const;
  void scanDirectory(const std::string& directory);
  void examineFile(const std::string& path);
  void update(const std::string& path, const File& file);
  void count(const File& file, int sign);
  void endWalk();

  std::string root_;
  FileDescriptor watch_;
  bool isMissing_ = false;
  bool isWatchRefused_ = false;
  /// Whether a walk has ended since the folder was missing.
  bool isComplete_ = false;

  unsigned walk_ = 0;
  std::deque<std::string> directories_;
  std::deque<std::string> files_;
  std::map<std::string, File> known_;
  IndexReport report_;
};

}  // namespace zephyl::sandbox
