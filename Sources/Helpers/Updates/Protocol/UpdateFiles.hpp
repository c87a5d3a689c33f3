#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include <boost/describe/class.hpp>

#include "System/Data/Result.hpp"

/// The state of updates, stored beside an installation. For an installation /opt/zephyl it is in
/// the state directory /opt/.zephyl.updates, with mode 0700:
///
///     lock           held by a running zephyl-tray-updater that changes files
///     archive-HASH   downloaded and verified, not installed yet; HASH is its SHA-256
///     partial/       being unpacked
///     staged/        the new version, verified, complete and on disk; after the exchange, for a
///                    moment, the old version
///     previous/      the version before the installed one
///     trial.json     exists while the installed version is unconfirmed
///     failed.json    a version that was rolled back because it did not confirm itself
///
/// Callable from any thread.
namespace zephyl {

/// The contents of trial.json and failed.json.
struct UpdateMarker {
  std::string version;         ///< the new version
  std::string displayVersion;  ///< the new version, for display
  bool told = false;           ///< failed.json: whether the user was notified
  std::int64_t starts = 0;     ///< trial.json: the number of starts of the version
  /// trial.json: the id of the last process that was asked to end before it could confirm the
  /// version. Its end is not a failure of the version.
  std::optional<std::int64_t> endedProcess;
  /// failed.json: the date of the newest feed when the version failed, in seconds since 1970.
  std::optional<std::int64_t> feedDate;
};
BOOST_DESCRIBE_STRUCT(UpdateMarker, (),
                      (version, displayVersion, told, starts, endedProcess, feedDate))
constexpr auto fieldsWithDefault(const UpdateMarker*) {
  return std::tuple(&UpdateMarker::told, &UpdateMarker::starts);
}

/// The paths of one installation's state directory and its files.
struct UpdateFiles {
  std::string prefix;
  std::string directory;
  std::string lock;
  std::string partial;
  std::string staged;
  std::string previous;
  std::string trial;
  std::string failed;

  /// Returns the paths for the installation at `prefix`. Does not touch the file system.
  static UpdateFiles of(const std::string& prefix);

  /// Returns the paths if the state directory exists and is trusted, otherwise nullopt. The tray
  /// must not use a state directory that was not returned here.
  static std::optional<UpdateFiles> trusted(const std::string& prefix);

  /// Returns why the state directory must not be trusted, or nullopt if it may be trusted or does
  /// not exist. It must be a directory and not a symbolic link, belong to this user, and grant no
  /// permissions to group and others, because in a shared parent directory any user can create one
  /// with this name.
  [[nodiscard]] std::optional<std::string> reasonForDistrust() const;

  [[nodiscard]] std::string archive(const std::string& sha256) const;
};

/// Returns nullopt if there is no marker at `path` or it cannot be read or decoded.
std::optional<UpdateMarker> readMarker(const std::string& path);
Result<void> writeMarker(const std::string& path, const UpdateMarker& marker);
/// Removes the marker at `path` if it can be read but not decoded. Returns whether it did.
bool removeUndecodableMarker(const std::string& path);

}  // namespace zephyl
