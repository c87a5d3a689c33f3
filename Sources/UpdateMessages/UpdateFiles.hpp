#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "System/Result.hpp"

/// What an update leaves beside an installation for the next program to find. For an installation
/// /opt/zephyl all of it is in /opt/.zephyl.updates, a directory of mode 0700:
///
///     lock           held by a zephyl-tray-updater that changes anything
///     archive-HASH   what was downloaded and verified and not installed yet; HASH is its SHA-256
///     partial/       what is being unpacked
///     staged/        the new version, verified, whole and on disk; after the swap, for a moment,
///                    the old one
///     previous/      the version before this one
///     trial.json     the new version stands at the prefix and has not reported itself up yet
///     failed.json    a version that was taken back because it did not report itself up
///
/// Callable from any thread.
namespace zephyl {

/// What trial.json and failed.json say.
struct UpdateNote {
  std::string version;         ///< the new version
  std::string displayVersion;  ///< the same, as people read it
  bool told = false;           ///< of a failed one: whether the user has been told
  std::int64_t starts = 0;     ///< of one on trial: how often it was started

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("version", self.version);
    fields("displayVersion", self.displayVersion);
    fields.orDefault("told", self.told);
    fields.orDefault("starts", self.starts);
  }
};

struct UpdateFiles {
  std::string prefix;
  std::string directory;
  std::string lock;
  std::string partial;
  std::string staged;
  std::string previous;
  std::string trial;
  std::string failed;

  static UpdateFiles of(const std::string& prefix);
  [[nodiscard]] std::string archive(const std::string& sha256) const;
};

/// None when there is no such note, or none that makes sense.
std::optional<UpdateNote> readNote(const std::string& path);
Result<void> writeNote(const std::string& path, const UpdateNote& note);

}  // namespace zephyl
