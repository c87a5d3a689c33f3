#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Agent/FolderWatch.hpp"
#include "Agent/IndexReport.hpp"
#include "Agent/WordIndex.hpp"

namespace zephyl::sandbox {

/// The lexical index of one shared folder: its text files, their size and their words, kept up to
/// date with what happens in the folder.
///
/// Left out are symbolic links, what is not a regular file, binary files (a NUL among the first
/// 8 KiB), directories whose name begins with a dot, and directories that tools fill
/// (node_modules, build, target and the like). Of each file the first 256 KiB are indexed, and no
/// more than 200 000 files.
///
/// The work is cut into small steps, so that the thread that owns the index stays responsive; all
/// calls come from that thread.
class FolderIndex {
 public:
  explicit FolderIndex(std::string root);

  /// Readable when the folder changed and `takeChanges` should be called; -1 without watching.
  int changesDescriptor() const { return watch_.descriptor(); }
  void takeChanges();

  /// Looks again from the start.
  void restart();

  bool hasWork() const { return !directories_.empty() || !files_.empty(); }

  /// Does one piece of the outstanding work: one directory, or one file.
  void step();

  bool missing() const { return missing_; }

  /// The present state; the next report counts changes from here.
  IndexReport report();

  /// The absolute paths of the files that hold the word.
  std::vector<std::string> find(std::string_view word) const;

 private:
  struct File {
    WordIndex::FileId id = 0;
    std::int64_t bytes = 0;
    std::size_t contentHash = 0;
  };

  std::string absolute(const std::string& path) const;
  void apply(const FolderChange& change);
  void scanDirectory(const std::string& directory);
  void readFile(const std::string& path);
  void take(const std::string& path, std::int64_t bytes, const std::string& text);
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
  std::unordered_map<WordIndex::FileId, const std::string*> paths_;
  WordIndex words_;
  WordIndex::FileId lastId_ = 0;
  IndexReport report_;
};

}  // namespace zephyl::sandbox
