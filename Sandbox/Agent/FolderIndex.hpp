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

/// What is known about the index of one folder at one moment.
struct IndexReport {
  std::string root;
  /// The folder was walked to its end.
  bool ready = false;
  /// The first walk, or the first one after the folder was missing, ends with this report.
  bool walked = false;
  /// The folder does not exist at present.
  bool missing = false;
  std::int64_t files = 0;
  std::int64_t bytes = 0;
  /// Pieces that the files would be cut into for embedding.
  std::int64_t chunks = 0;

  // Since the previous report, once the first walk is over:
  /// Files that were added, removed or changed.
  std::int64_t changed = 0;
  /// Those of them that existed before and still do.
  std::int64_t rewritten = 0;
  /// One of them, relative to the folder.
  std::string changedPath;
};

/// The index of one shared folder: its text files with their sizes. When the folder has changed it
/// is walked again; only files that are new or changed are read. A search reads the files.
///
/// Left out are symbolic links, everything else that is not a regular file, binary files (a NUL
/// among the first 8 KiB), directories whose name begins with a dot, and directories that tools
/// fill (node_modules, build, target and the like). Of each file the first 256 KiB count, and no
/// more than 200 000 files. Changes in directories that the kernel refuses to watch are not
/// noticed.
///
/// A walk is cut into small steps, so that the thread that owns the index stays responsive; all
/// calls come from that thread.
class FolderIndex {
 public:
  explicit FolderIndex(std::string root);

  /// Readable when the folder has changed; -1 when the system gives no descriptor.
  [[nodiscard]] int changesDescriptor() const { return watch_.get(); }

  /// Starts a walk. Changes that happened before do not count as new ones.
  void restart();

  [[nodiscard]] bool hasWork() const { return !directories_.empty() || !files_.empty(); }

  /// Does one piece of the walk: one directory, or one file.
  void step();

  [[nodiscard]] bool isMissing() const { return isMissing_; }

  /// Returns the present state; the next report counts changes from here.
  IndexReport report();

  /// Returns the absolute paths of at most `maxFound` files that hold the word: a run of letters,
  /// digits and "_", without regard to the case of ASCII letters.
  [[nodiscard]] std::vector<std::string> find(std::string_view word, std::size_t maxFound) const;

 private:
  /// Tells the content of a file from that of an earlier walk without reading it.
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
  /// A walk has ended since the folder was missing.
  bool isComplete_ = false;

  unsigned walk_ = 0;
  std::deque<std::string> directories_;
  std::deque<std::string> files_;
  std::map<std::string, File> known_;
  IndexReport report_;
};

}  // namespace zephyl::sandbox
