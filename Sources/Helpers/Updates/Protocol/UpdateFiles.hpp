#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include <boost/describe/class.hpp>

#include "System/Data/Result.hpp"

/// The state of updates, kept beside an installation. For an installation /opt/zephyl all of it is
/// in the state directory /opt/.zephyl.updates, of mode 0700:
///
///     lock           held by a zephyl-tray-updater that changes anything
///     archive-HASH   downloaded and verified, not installed yet; HASH is its SHA-256
///     partial/       being unpacked
///     staged/        the new version, verified, complete and on disk; after the exchange, for a
///                    moment, the old version
///     previous/      the version before the installed one
///     trial.json     the installed version is unconfirmed: it has not reported yet that it works
///     failed.json    a version that was rolled back because it did not confirm that it works
///
/// Callable from any thread.
namespace zephyl {

/// The contents of trial.json and failed.json.
struct UpdateMarker {
  std::string version;         ///< the new version
  std::string displayVersion;  ///< the same, for people
  bool told = false;           ///< failed.json: the user has been told
  std::int64_t starts = 0;     ///< trial.json: how often the version was started
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

  /// Returns the paths if the state directory exists and may be trusted, otherwise nullopt. The
  /// tray reads, writes and runs nothing in a state directory that it did not get from here.
  static std::optional<UpdateFiles> trusted(const std::string& prefix);

  /// Returns why the state directory must not be trusted; nullopt if it may be, or does not exist.
  /// It must be a directory, not a symbolic link to one, belong to this user and grant nothing to
  /// group and others: in a shared parent directory anybody can create one by this name.
  [[nodiscard]] std::optional<std::string> reasonForDistrust() const;

  [[nodiscard]] std::string archive(const std::string& sha256) const;
};

/// Returns nullopt if there is no note at `path`, or one that cannot be read or decoded.
std::optional<UpdateMarker> readMarker(const std::string& path);
Result<void> writeMarker(const std::string& path, const UpdateMarker& note);
/// Removes the note at `path` if it can be read but not decoded. Returns whether it did.
bool removeUndecodableNote(const std::string& path);

}  // namespace zephyl
