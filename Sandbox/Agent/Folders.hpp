#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agent/IndexReport.hpp"
#include "Agent/Outcome.hpp"
#include "Agent/Records.hpp"
#include "Agent/StateFile.hpp"

namespace zephyl::sandbox {

/// The shared folders with the state of their index and of their simulated embedding.
///
/// A folder is kept under its canonical path, and found under any path that leads to it. Sharing a
/// shared folder with further servers widens its scope; sharing it again with nobody new is a
/// conflict.
class Folders {
 public:
  struct Sums {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
  };

  /// A path as it would be kept: absolute, existing, a folder, not the whole file system.
  static Outcome<std::string> canonical(const std::string& path);

  explicit Folders(const std::vector<State::Folder>& remembered);

  /// Answers with the folder, and whether it is newly shared.
  struct Added {
    SharedRoot shared;
    bool isNew = false;
  };
  Outcome<Added> add(const std::string& path, const std::optional<std::string>& name,
                     const std::optional<std::vector<std::string>>& servers);
  Outcome<SharedRoot> remove(const std::string& path);
  Outcome<SharedRoot> setServers(const std::string& path, const std::vector<std::string>& servers);

  /// The root that a path leads to.
  Outcome<std::string> find(const std::string& path) const;

  /// Takes over what the index says; false when that folder is no longer shared. A file that got
  /// another content has to be embedded again.
  bool apply(const IndexReport& report);

  /// Embeds this many files, folder after folder; answers with the folders that this finished.
  std::vector<SharedRoot> embed(double files);

  bool indexing() const;
  /// A folder whose index is ready holds files that are not embedded yet.
  bool embeddingOutstanding() const;

  std::vector<IndexProgress> progress(bool modelReady, bool modelFailed) const;
  std::vector<SharedRoot> shared() const;
  std::vector<State::Folder> remember() const;
  Sums sums() const;

 private:
  struct Folder {
    SharedRoot shared;
    IndexReport index;
    double embedded = 0;

    bool outstanding() const;
    IndexProgress progress(bool modelReady, bool modelFailed) const;
  };

  Outcome<std::size_t> locate(const std::string& path) const;
  Outcome<Added> widen(Folder& folder,
                       const std::optional<std::vector<std::string>>& servers) const;

  std::vector<Folder> folders_;
};

}  // namespace zephyl::sandbox
