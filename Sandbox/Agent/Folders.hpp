#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agent/Index/FolderIndex.hpp"
#include "Agent/Records.hpp"
#include "System/Data/Result.hpp"

namespace zephyl::sandbox {

/// The shared folders with the state of their index and of their simulated embedding.
///
/// A folder is stored under its canonical path and found under any path to it. Sharing a shared
/// folder with further servers extends its scope. Sharing it again with the same servers is an
/// error, as is the path of a folder that is not shared.
class Folders {
 public:
  struct Sums {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
  };

  /// Returns the canonical path of a folder; nullopt if it does not exist. Fails for a path that is
  /// not absolute, not a folder, or the root of the file system.
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

  /// Returns the shared folder at a path.
  [[nodiscard]] Result<std::string> find(const std::string& path) const;

  /// Stores the progress of the index. Returns false if its folder is no longer shared. A file
  /// whose content has changed has to be embedded again.
  bool apply(const IndexReport& report);

  /// Embeds this many files, folder by folder. Returns the folders that were completed.
  std::vector<SharedRoot> embed(double files);

  [[nodiscard]] bool isIndexing() const;
  /// Returns whether a folder with a complete index has files that are not embedded yet.
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
