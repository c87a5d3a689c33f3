#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Agent/FolderWatch.hpp"

namespace zephyl::sandbox {

/// What is known about the index of one folder at one moment.
struct IndexReport {
  std::string root;
  /// The folder was walked to its end and nothing waits to be read.
  bool ready = false;
  /// A walk through the whole folder ends with this report.
  bool walked = false;
  /// The folder does not exist at present; it is looked for again.
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

/// The index of one shared folder: its text files with their sizes, kept up to date while the
/// folder changes. A search reads the files.
///
/// Left out are symbolic links, everything else that is not a regular file, binary files (a NUL
/// among the first 8 KiB), directories whose name begins with a dot, and directories that tools
/// fill (node_modules, build, target and the like). Of each file the first 256 KiB count, and no
/// more than 200 000 files.
///
/// The work is cut into small steps, so that the thread that owns the index stays responsive; all
/// calls come from that thread.
class FolderIndex {
 public:
  explicit FolderIndex(std::string root);

  /// Readable when the folder has changed and `applyChanges` should be called; -1 when the system
  /// does not report changes.
  [[nodiscard]] int changesDescriptor() const { return watch_.descriptor(); }
  void applyChanges();

  /// Walks the folder again from the start.
  void restart();

  [[nodiscard]] bool hasWork() const { return !directories_.empty() || !files_.empty(); }

  /// Does one piece of the outstanding work: one directory, or one file.
  void step();

  [[nodiscard]] bool isMissing() const { return missing_; }

  /// Returns the present state; the next report counts changes from here.
  IndexReport report();

  /// Returns the absolute paths of at most `maxFound` files that hold the word: a run of letters,
  /// digits and "_", without regard to the case of ASCII letters.
  [[nodiscard]] std::vector<std::string> find(std::string_view word, std::size_t maxFound) const;

 private:
  struct File {
    std::int64_t bytes = 0;
    std::size_t contentHash = 0;
  };

  [[nodiscard]] std::string absolute(const std::string& path) const;
  void apply(const FolderChange& change);
  void scanDirectory(const std::string& directory);
  void readFile(const std::string& path);
  void add(const std::string& path, std::int64_t bytes, const std::string& text);
  void drop(const std::string& path);
  void dropDirectory(const std::string& directory);
  void erase(std::map<std::string, File>::iterator entry);
  void clear();
  void noteChange(const std::string& path);

  std::string root_;
  FolderWatch watch_;
  bool missing_ = false;
  bool watchRefused_ = false;
  /// The first walk has come to its end.
  bool complete_ = false;

  // Outstanding work.
  std::deque<std::string> directories_;
  std::set<std::string> files_;

  std::map<std::string, File> known_;
  IndexReport report_;
};

}  // namespace zephyl::sandbox
