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

/// What Info.json of an installation says that matters here.
struct InstalledBundle {
  std::string identifier;
  std::string version;         ///< "CFBundleVersion", else the following
  std::string displayVersion;  ///< "CFBundleShortVersionString"
  std::string feedURL;
  std::vector<std::string> keys;  ///< "SUPublicEDKey", a text or a list of texts
  std::string updateCommand;      ///< set by a package: how its users update

  /// Reads that of the installation, or of a staged version, at `prefix`.
  static Result<InstalledBundle> read(const std::string& prefix);
};

/// An installation and what is beside it (see UpdateFiles). The new version is staged beside the
/// old one and takes its place in one step of the file system, an exchange of two names, so that
/// at no moment, a power cut's included, less than one whole version stands at the prefix. One
/// object at a time works on an installation; a second finds the lock taken.
class Installation {
 public:
  /// Returns why the installation at `prefix` must not be replaced, and what to do instead; nullopt
  /// if it may be. It must belong to this user, hold files of this program only, and not belong to
  /// a package manager. Nobody else may write to any part of it, or to the directory that holds it,
  /// which must belong to this user or root.
  static std::optional<std::string> obstacle(const std::string& prefix);

  /// Opens it for changes. Whatever an earlier run left unfinished is finished or rolled back.
  static Result<Installation> open(const std::string& prefix);

  /// A new file without a name, for what is downloaded: it is gone with its descriptor.
  [[nodiscard]] Result<FileDescriptor> makeUnnamedFile() const;
  /// Unpacks `archive`, the verified bytes, which must be version `version` of the same program,
  /// newer than the installed one, with a feed address and keys for the next update. The new
  /// version gets the group and mode of the installation.
  Result<void> stage(std::string_view archive, const std::string& version);
  /// Installs the staged version, unconfirmed, and keeps the previous one.
  Result<void> swap(const std::string& version);
  /// Installs the previous version in place of an unconfirmed one, and records the latter as
  /// failed.
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
