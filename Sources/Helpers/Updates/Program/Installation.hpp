#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// The values of an installation's Info.json that updates use.
struct InstalledBundle {
  std::string identifier;
  std::string version;         ///< "CFBundleVersion", else `displayVersion`
  std::string displayVersion;  ///< "CFBundleShortVersionString"
  std::string feedURL;
  std::vector<std::string> keys;  ///< "SUPublicEDKey", a string or a list of strings
  std::string updateCommand;      ///< set by a package: the command that updates it

  /// Reads Info.json of the installation or staged version at `prefix`.
  static Result<InstalledBundle> read(const std::string& prefix);
};

/// An installation and its state directory (see UpdateFiles). A new version is staged beside the
/// old one and replaces it by an exchange of two names, one atomic step of the file system. So the
/// prefix always contains exactly one complete version, even after a power cut. Only one object can
/// use an installation at a time: for a second one, the lock is not available.
class Installation {
 public:
  /// Returns why the installation at `prefix` must not be replaced and what to do instead, or
  /// nullopt if it may be replaced. It must belong to this user, contain only files of this
  /// program, and not belong to a package manager. Nobody else may write to any part of it or to
  /// its parent directory, which must belong to this user or root.
  static std::optional<std::string> obstacle(const std::string& prefix);

  /// Opens the installation for changes. Finishes or rolls back what an earlier run left
  /// unfinished.
  static Result<Installation> open(const std::string& prefix);

  /// Creates an unnamed file for a download, which is deleted when it is closed.
  [[nodiscard]] Result<FileDescriptor> makeUnnamedFile() const;
  /// Unpacks the verified bytes `archive`. They must be version `version` of the same program,
  /// newer than the installed one, with a feed address and keys for the next update. The new
  /// version gets the group and mode of the installation.
  Result<void> stage(std::string_view archive, const std::string& version);
  /// Installs the staged version as unconfirmed and keeps the previous one.
  Result<void> swap(const std::string& version);
  /// Replaces the unconfirmed version by the previous one, and records it as failed.
  Result<void> rollBack();

  [[nodiscard]] const UpdateFiles& files() const { return files_; }

 private:
  Installation(UpdateFiles files, FileDescriptor lock)
      : files_(std::move(files)), lock_(std::move(lock)) {}

  void recover();
  [[nodiscard]] bool stagedIsOlder(const InstalledBundle& installed) const;
  [[nodiscard]] Result<void> checkStaged(const std::string& at, const std::string& version) const;

  UpdateFiles files_;
  FileDescriptor lock_;
};

}  // namespace zephyl
