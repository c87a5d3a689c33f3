#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include <boost/describe/class.hpp>

/// The messages between the tray and zephyl-tray-updater, one JSON object a line.
///
/// The tray writes one `UpdateCommand`. The program answers with `UpdateReport`s. Every report
/// except `UpdateProgress` is the last one. The end of the input cancels a check or a download
/// without an answer. An installation that has begun is finished even if the tray has ended.
///
/// Programs of different versions exchange `WatchCommand` and `RollBackCommand`, so their names and
/// fields must not change.
namespace zephyl {

/// An update that the signed feed offers to this installation.
struct UpdateOffer {
  std::string version;         ///< for comparison
  std::string displayVersion;  ///< for display
  std::string url;
  std::int64_t length = 0;  ///< of the archive, in bytes
  std::string sha256;       ///< of the archive, 64 hexadecimal digits
  std::string signature;    ///< of the archive, base64; several are separated by spaces
  bool critical = false;
  std::string releaseNotes;  ///< plain text
};
BOOST_DESCRIBE_STRUCT(UpdateOffer, (),
                      (version, displayVersion, url, length, sha256, signature, critical,
                       releaseNotes))

/// A version that was rolled back.
struct FailedVersion {
  std::string version;
  std::int64_t feedDate = 0;  ///< date of the newest feed at the failure, in seconds since 1970
};
BOOST_DESCRIBE_STRUCT(FailedVersion, (), (version, feedDate))
constexpr auto fieldsWithDefault(const FailedVersion*) {
  return std::tuple(&FailedVersion::feedDate);
}

/// In all commands `prefix` is the installation: the directory that contains bin and share.
/// `stallSeconds` is how long a server may send nothing.
struct CheckCommand {
  std::string prefix;
  std::vector<std::string> channels;  ///< in addition to the default channel
  std::vector<std::string> skip;      ///< versions that are offered only if they are critical
  /// A version that is offered only if a feed newer than its failure marks it as critical.
  std::optional<FailedVersion> failed;
  /// The date of the newest known feed, in seconds since 1970. An older feed is refused.
  std::optional<std::int64_t> newestFeedDate;
  std::int64_t rolloutGroup = 0;  ///< this installation's group in a phased roll-out
  bool userInitiated = false;     ///< if true, a phased roll-out is ignored
  std::optional<std::int64_t> stallSeconds;
};
BOOST_DESCRIBE_STRUCT(CheckCommand, (),
                      (prefix, channels, skip, failed, newestFeedDate, rolloutGroup, userInitiated,
                       stallSeconds))

/// Downloads the offered archive, unless an earlier download was kept, verifies it and stages the
/// new version beside the installation.
struct DownloadCommand {
  std::string prefix;
  UpdateOffer offer;
  std::optional<std::int64_t> stallSeconds;
};
BOOST_DESCRIBE_STRUCT(DownloadCommand, (), (prefix, offer, stallSeconds))

/// Installs the staged version.
struct InstallCommand {
  std::string prefix;
  std::string version;
};
BOOST_DESCRIBE_STRUCT(InstallCommand, (), (prefix, version))

/// Watches a process that is about to execute the new version. If the process ends, or
/// `limitSeconds` pass, before the new version has confirmed itself, rolls back to the previous
/// version and executes it. Does nothing if the process was asked to end (see UpdateMarker).
struct WatchCommand {
  std::string prefix;
  std::int64_t process = 0;
  std::vector<std::string> arguments;  ///< of the tray, without the program name
  std::int64_t limitSeconds = 0;
};
BOOST_DESCRIBE_STRUCT(WatchCommand, (), (prefix, process, arguments, limitSeconds))

/// Rolls an unconfirmed version back to the previous one. Sends no report: the exit status shows
/// whether it succeeded.
struct RollBackCommand {
  std::string prefix;
};
BOOST_DESCRIBE_STRUCT(RollBackCommand, (), (prefix))

using UpdateCommand =
    std::variant<CheckCommand, DownloadCommand, InstallCommand, WatchCommand, RollBackCommand>;

constexpr std::array<std::string_view, 5> messageNames(const UpdateCommand*) {
  return {"check", "download", "install", "watch", "takeBack"};
}

/// `feedDate` is the date of the feed that was read, in seconds since 1970.
struct UpdateFound {
  UpdateOffer offer;
  std::int64_t feedDate = 0;
  /// The reason why it cannot be installed here, and how to update instead.
  std::optional<std::string> obstacle;
};
BOOST_DESCRIBE_STRUCT(UpdateFound, (), (offer, feedDate, obstacle))

/// No newer version is offered.
struct UpToDate {
  std::string version;  ///< the installed version, for display
  std::int64_t feedDate = 0;
};
BOOST_DESCRIBE_STRUCT(UpToDate, (), (version, feedDate))

/// The progress of a download.
struct UpdateProgress {
  std::int64_t received = 0;  ///< bytes
  std::int64_t total = 0;
};
BOOST_DESCRIBE_STRUCT(UpdateProgress, (), (received, total))

/// A version was staged.
struct UpdateStaged {
  std::string value;  ///< the version
};
BOOST_DESCRIBE_STRUCT(UpdateStaged, (), (value))

/// A version was installed at the prefix.
struct UpdateInstalled {
  std::string value;  ///< the version
};
BOOST_DESCRIBE_STRUCT(UpdateInstalled, (), (value))

/// The command has failed.
struct UpdateFailed {
  std::string value;  ///< the reason, fit for a user
};
BOOST_DESCRIBE_STRUCT(UpdateFailed, (), (value))

/// Messages from the program.
using UpdateReport = std::variant<UpdateFound, UpToDate, UpdateProgress, UpdateStaged,
                                  UpdateInstalled, UpdateFailed>;

constexpr std::array<std::string_view, 6> messageNames(const UpdateReport*) {
  return {"found", "upToDate", "progress", "ready", "installed", "failed"};
}

/// The protocol for `HelperProcess`.
struct UpdatesProtocol {
  using Request = UpdateCommand;
  using Report = UpdateReport;
};

}  // namespace zephyl
