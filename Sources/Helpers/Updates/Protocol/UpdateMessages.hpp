#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <boost/describe/class.hpp>

/// What the tray and zephyl-tray-updater say to each other, one JSON object a line.
///
/// The tray writes one `UpdateCommand`. The program answers with `UpdateReport`s, of which all but
/// `progress` end it. An end of the input cancels a check or a download, without an answer; an
/// installation that has begun is finished whatever becomes of the tray.
namespace zephyl {

/// An update that the signed feed offers this installation.
struct UpdateOffer {
  std::string version;         ///< as versions are compared
  std::string displayVersion;  ///< as people read it
  std::string url;
  std::int64_t length = 0;  ///< of the archive, in bytes
  std::string sha256;       ///< of the archive, 64 hexadecimal digits
  std::string signature;    ///< of the archive, base64; there may be several, between spaces
  bool critical = false;
  std::string releaseNotes;  ///< plain text
};
BOOST_DESCRIBE_STRUCT(UpdateOffer, (),
                      (version, displayVersion, url, length, sha256, signature, critical,
                       releaseNotes))

/// A version that was rolled back.
struct FailedVersion {
  std::string version;
  std::int64_t feedDate = 0;  ///< of the newest feed when it failed, in seconds since 1970
};
BOOST_DESCRIBE_STRUCT(FailedVersion, (), (version, feedDate))
constexpr auto fieldsWithDefault(const FailedVersion*) {
  return std::tuple(&FailedVersion::feedDate);
}

/// In all commands `prefix` is the installation: the directory that holds bin and share.
/// `stallSeconds`: how long a server may send nothing.
struct CheckCommand {
  std::string prefix;
  std::vector<std::string> channels;  ///< besides the one that everybody gets
  std::vector<std::string> skip;      ///< versions that are offered only if they are critical
  /// A version that is offered only if a feed that is newer than its failure marks it critical.
  std::optional<FailedVersion> failed;
  /// The date of the newest feed seen before, in seconds since 1970. An older one is refused.
  std::optional<std::int64_t> newestFeedDate;
  std::int64_t rolloutGroup = 0;  ///< this installation's place in a phased roll-out
  bool userInitiated = false;     ///< then a phased roll-out is not waited for
  std::optional<std::int64_t> stallSeconds;
};
BOOST_DESCRIBE_STRUCT(CheckCommand, (),
                      (prefix, channels, skip, failed, newestFeedDate, rolloutGroup, userInitiated,
                       stallSeconds))

/// Downloads what was offered, unless it was kept by an earlier download, verifies it and lays it
/// out beside the installation.
struct DownloadCommand {
  std::string prefix;
  UpdateOffer offer;
  std::optional<std::int64_t> stallSeconds;
};
BOOST_DESCRIBE_STRUCT(DownloadCommand, (), (prefix, offer, stallSeconds))

/// Puts what was laid out in the installation's place.
struct InstallCommand {
  std::string prefix;
  std::string version;
};
BOOST_DESCRIBE_STRUCT(InstallCommand, (), (prefix, version))

/// Watches a process that is about to execute the new version. Rolls back to the previous version
/// and executes it if the process ends, or `limitSeconds` pass, before the new version has
/// confirmed that it works. Does nothing if the process was asked to end (see UpdateNote).
struct WatchCommand {
  std::string prefix;
  std::int64_t process = 0;
  std::vector<std::string> arguments;  ///< of the tray, without its name
  std::int64_t limitSeconds = 0;
};
BOOST_DESCRIBE_STRUCT(WatchCommand, (), (prefix, process, arguments, limitSeconds))

/// Puts the previous version back in place of one that is on trial. It is not answered: the exit
/// status tells.
struct TakeBackCommand {
  std::string prefix;
};
BOOST_DESCRIBE_STRUCT(TakeBackCommand, (), (prefix))

/// What to do: exactly one of these.
struct UpdateCommand {
  std::optional<CheckCommand> check;
  std::optional<DownloadCommand> download;
  std::optional<InstallCommand> install;
  std::optional<WatchCommand> watch;
  std::optional<TakeBackCommand> takeBack;
};
BOOST_DESCRIBE_STRUCT(UpdateCommand, (), (check, download, install, watch, takeBack))

/// `feedDate`: of the feed that was read, in seconds since 1970.
struct FoundUpdate {
  UpdateOffer offer;
  std::int64_t feedDate = 0;
  /// Why it cannot be installed here, and how to update instead.
  std::optional<std::string> obstacle;
};
BOOST_DESCRIBE_STRUCT(FoundUpdate, (), (offer, feedDate, obstacle))
struct NoUpdate {
  std::string version;  ///< the installed one, for people
  std::int64_t feedDate = 0;
};
BOOST_DESCRIBE_STRUCT(NoUpdate, (), (version, feedDate))
struct UpdateProgress {
  std::int64_t received = 0;  ///< bytes
  std::int64_t total = 0;
};
BOOST_DESCRIBE_STRUCT(UpdateProgress, (), (received, total))

/// What the program says: exactly one of these.
struct UpdateReport {
  using Found = FoundUpdate;
  using UpToDate = NoUpdate;
  using Progress = UpdateProgress;

  std::optional<Found> found;
  std::optional<UpToDate> upToDate;
  std::optional<Progress> progress;
  std::optional<std::string> ready;      ///< the version that is laid out
  std::optional<std::string> installed;  ///< the version that now stands at the prefix
  std::optional<std::string> failed;     ///< why nothing came of it
};
BOOST_DESCRIBE_STRUCT(UpdateReport, (), (found, upToDate, progress, ready, installed, failed))

}  // namespace zephyl
