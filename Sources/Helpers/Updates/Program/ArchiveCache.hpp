#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Archives that were downloaded and verified and not installed yet (see UpdateFiles), so that a
/// tray which ends meanwhile needs not download them again. What was kept is trusted no more than
/// what comes over the network: the caller verifies what it reuses. After a failure nothing is
/// kept. Requires the installation's lock, except for `hasUnwanted`.
class ArchiveCache {
 public:
  /// After that long nobody waits for it any more.
  static constexpr std::chrono::hours keptFor{24 * 28};

  explicit ArchiveCache(UpdateFiles files) : files_(std::move(files)) {}

  /// Gives `file`, which has no name, one. A file system that cannot do that keeps nothing.
  void keep(const FileDescriptor& file, const std::string& sha256) const;
  /// Copies the one of this hash and length to `file`, so that nobody changes it between a look
  /// and a use; whether there is one.
  [[nodiscard]] bool copyTo(const FileDescriptor& file, const std::string& sha256,
                            std::int64_t length) const;
  void removeAll() const;

  /// Returns whether there are archives that are older than `keptFor`, or that do not have the hash
  /// `offered`, which may be empty if the current offer is unknown. A staged version expires with
  /// its archive.
  [[nodiscard]] bool hasUnwanted(const std::string& offered) const;
  /// Removes these archives, and with the last one the version that was staged from it.
  void removeUnwanted(const std::string& offered) const;

 private:
  const UpdateFiles files_;
};

}  // namespace zephyl
