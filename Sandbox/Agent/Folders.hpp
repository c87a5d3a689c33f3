#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agent/FolderIndex.hpp"
#include "Agent/Records.hpp"
#include "System/Data/Result.hpp"

namespace zephyl::sandbox {

/// The shared folders with the state of their index and of their simulated embedding.
///
/// A folder is kept under its canonical path and found under any path that leads to it. Sharing a
/// shared folder with further servers widens its scope; sharing it again with the same ones is an
/// error. So is the path of a folder that is not shared.
class Folders {
 public:
  struct Sums {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
  };

  /// Returns the path of a folder as it would be kept; nullopt when nothing is there. A path that
  /// is not absolute, not a folder, or that of the whole file system is an error.
  static Result<std::optional<std::string>> canonical(const std::string& path);

  explicit Folders(const std::vector<SavedFolder>& saved);

  struct Added {
    SharedRoot shared;
    bool isNew = false;
  };
  /// `root` must be canonical. Returns the folder and whether it is newly shared.
  Result<Added> add(const std::string& root, const std::optional<std::string>& name,
                    const std::optional<std::vector<std::string>>& servers);
  Result<SharedRoot> remove(const std::string& path);
  Result<SharedRoot> setServers(const std::string& path, const std::vector<std::string>& servers);

  /// Returns the root that a path leads to.
  [[nodiscard]] Result<std::string> find(const std::string& path) const;

  /// Stores the progress of the index. Returns false if its folder is no longer shared. A file
  /// whose content has changed has to be embedded again.
  bool apply(const IndexReport& report);

  /// Embeds this many files, folder after folder; returns the folders that this finished.
  std::vector<SharedRoot> embed(double files);

  [[nodiscard]] bool isIndexing() const;
  /// Returns whether a folder whose index is ready holds files that are not embedded yet.
  [[nodiscard]] bool isEmbeddingOutstanding() const;

  [[nodiscard]] std::vector<IndexProgress> progress(bool modelReady, bool modelFailed) const;
  [[nodiscard]] std::vector<SharedRoot> shared() const;
  [[nodiscard]] std::vector<SavedFolder> saved() const;
  [[nodiscard]] Sums sums() const;

 private:
  struct Folder {
    SharedRoot shared;
    IndexReport index;
    double embedded = 0;

    [[nodiscard]] bool isOutstanding() const;
    [[nodiscard]] IndexProgress progress(bool modelReady, bool modelFailed) const;
  };

  [[nodiscard]] const Folder* locate(const std::string& path) const;
  Result<Folder*> locateShared(const std::string& path);
  static Result<Added> widen(Folder& folder,
                             const std::optional<std::vector<std::string>>& servers);

  std::vector<Folder> folders_;
};

}  // namespace zephyl::sandbox
