#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Archives that were downloaded and verified but not installed yet (see UpdateFiles), so that a
/// tray that ends meanwhile need not download them again. A kept archive is not more trusted than
/// the network: the caller must verify it again. After a failure nothing is kept. Requires the
/// installation's lock, except for `hasUnwanted`.
class ArchiveCache {
 public:
  /// The age after which an archive is not expected to be used any more.
  static constexpr std::chrono::hours keptFor{24 * 28};

  explicit ArchiveCache(UpdateFiles files) : files_(std::move(files)) {}

  /// Gives the unnamed file `file` its name in the cache. Keeps nothing if the file system does not
  /// support that.
  void keep(const FileDescriptor& file, const std::string& sha256) const;
  /// Copies the archive with this hash and length to `file`, so that it cannot change between
  /// verification and use. Returns whether there is one.
  [[nodiscard]] bool copyTo(const FileDescriptor& file, const std::string& sha256,
                            std::int64_t length) const;
  void removeAll() const;

  /// Returns whether there are archives that are older than `keptFor` or that do not have the hash
  /// `offered`, which may be empty if the current offer is unknown. A staged version expires with
  /// its archive.
  [[nodiscard]] bool hasUnwanted(const std::string& offered) const;
  /// Removes these archives. With the last archive, also removes the version that was staged from
  /// it.
  void removeUnwanted(const std::string& offered) const;

 private:
  const UpdateFiles files_;
};

}  // namespace zephyl
