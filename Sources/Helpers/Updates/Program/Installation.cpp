#include "Helpers/Updates/Program/Installation.hpp"

#include <cerrno>
#include <compare>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Helpers/Updates/Archive/Extraction.hpp"
#include "Helpers/Updates/Program/Address.hpp"
#include "Helpers/Updates/Program/Signature.hpp"
#include "Helpers/Updates/Program/Trial.hpp"
#include "Helpers/Updates/Program/Version.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

constexpr mode_t privateMode = 0700;
constexpr auto executableInPrefix = "bin/zephyl-tray";

std::string textIn(const json::Object& dictionary, std::string_view key) {
  const auto* value = dictionary.if_contains(key);
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : "";
}

std::vector<std::string> textsIn(const json::Object& dictionary, std::string_view key) {
  const auto* value = dictionary.if_contains(key);
  if (value != nullptr && value->is_array()) {
    auto list = json::decode<std::vector<std::string>>(*value);
    return list ? std::move(*list) : std::vector<std::string>();
  }
  const std::string text = textIn(dictionary, key);
  return text.empty() ? std::vector<std::string>() : std::vector<std::string>{text};
}

FileDescriptor openDirectory(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Result<void> flush(const std::string& path) {
  const FileDescriptor directory = openDirectory(path);
  if (!directory || ::fsync(directory.get()) != 0) return systemError(path, errno);
  return {};
}

/// Makes renames in both directories durable.
Result<void> flushBoth(const UpdateFiles& files) {
  if (auto flushed = flush(files.directory); !flushed) return flushed;
  return flush(parentDirectory(files.prefix));
}

Result<void> renameTo(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) return systemError(from, errno);
  return {};
}

/// Exchanges two directories atomically.
Result<void> exchangeDirectories(const std::string& one, const std::string& other) {
  if (::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0) return {};
  if (errno == EINVAL || errno == ENOSYS) {
    return Error{"The file system of ", one, " cannot exchange two directories in one step."};
  }
  return systemError(one, errno);
}

/// Creates a directory that is accessible to the same users as the directory `like`.
Result<void> makeDirectoryLike(const std::string& like, const std::string& path) {
  struct stat status {};
  if (::stat(like.c_str(), &status) != 0) return systemError(like, errno);
  if (::mkdir(path.c_str(), privateMode) != 0) return systemError(path, errno);
  constexpr auto sameOwner = static_cast<uid_t>(-1);
  constexpr mode_t permissions = 07777;
  // The group first, because changing it clears some of the permissions.
  if (::lchown(path.c_str(), sameOwner, status.st_gid) != 0 ||
      ::chmod(path.c_str(), status.st_mode & permissions) != 0) {
    return systemError(path, errno);
  }
  return {};
}

/// Creates the state directory. An existing one is used only if it is trusted.
Result<void> prepareStateDirectory(const UpdateFiles& files) {
  const bool made = ::mkdir(files.directory.c_str(), privateMode) == 0;
  if (!made && errno != EEXIST) return systemError(files.directory, errno);
  if (made && ::chmod(files.directory.c_str(), privateMode) != 0) {
    return systemError(files.directory, errno);
  }
  const auto reason = files.reasonForDistrust();
  if (!reason) return {};
  return Error{"Updates need a folder that nobody else can use. ", *reason,
               " Remove it, then check for updates again."};
}

/// Checks that the bundle's feed address and keys are usable for the next update.
Result<void> checkCanBeUpdated(const InstalledBundle& bundle) {
  if (const auto usable = checkAddress(bundle.feedURL); !usable) {
    return Error{"The update has no usable feed address: ", usable.error().message};
  }
  if (const auto keys = TrustedKeys::parse(bundle.keys); !keys) {
    return Error{"The update has no usable signing key: ", keys.error().message};
  }
  return {};
}

Result<FileDescriptor> acquireLock(const std::string& path) {
  FileDescriptor lock(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!lock) return systemError(path, errno);
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
    return Error{"Another update is already in progress."};
  return lock;
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

Result<InstalledBundle> InstalledBundle::read(const std::string& prefix) {
  const std::string path = joinPath(prefix, "share/zephyl-tray/Info.json");
  const auto text = readFile(path);
  if (!text) return text.error();
  const auto value = json::parse(*text);
  if (!value || !value->is_object()) return Error{path, ": not a dictionary"};
  const auto& dictionary = value->get_object();
  InstalledBundle bundle{
      .identifier = textIn(dictionary, "CFBundleIdentifier"),
      .version = textIn(dictionary, "CFBundleVersion"),
      .displayVersion = textIn(dictionary, "CFBundleShortVersionString"),
      .feedURL = textIn(dictionary, "SUFeedURL"),
      .keys = textsIn(dictionary, "SUPublicEDKey"),
      .updateCommand = textIn(dictionary, "ZephylUpdateCommand"),
  };
  if (bundle.version.empty()) bundle.version = bundle.displayVersion;
  if (!isVersion(bundle.version)) return Error{path, ": no version"};
  return bundle;
}

Result<Installation> Installation::open(const std::string& prefix) {
  auto files = UpdateFiles::of(prefix);
  if (auto made = prepareStateDirectory(files); !made) return made.error();
  auto lock = acquireLock(files.lock);
  if (!lock) return lock.error();
  Installation installation(std::move(files), std::move(*lock));
  installation.recover();
  return installation;
}

/// Completes or reverts the work of a run that was killed.
void Installation::recover() {
  const auto trial = readMarker(files_.trial);
  if (!trial) return;
  const auto installed = InstalledBundle::read(files_.prefix);
  if (!installed || installed->version != trial->version) {
    // The earlier run was killed before the exchange, or after a rollback.
    static_cast<void>(removePath(files_.trial));
  } else if (fileExists(files_.staged) && !fileExists(files_.previous) &&
             stagedIsOlder(*installed)) {
    static_cast<void>(renameTo(files_.staged, files_.previous));
  }
}

/// Returns whether the staged version is the previous one, left there by an interrupted exchange.
bool Installation::stagedIsOlder(const InstalledBundle& installed) const {
  const auto staged = InstalledBundle::read(files_.staged);
  return staged && std::is_lt(compareVersions(staged->version, installed.version));
}

Result<FileDescriptor> Installation::makeUnnamedFile() const {
  FileDescriptor file(::open(files_.directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file) return file;
  // Some file systems do not support unnamed files.
  std::string name = joinPath(files_.directory, "download.XXXXXX");
  file.reset(::mkostemp(name.data(), O_CLOEXEC));
  if (!file) return systemError(files_.directory, errno);
  ::unlink(name.c_str());
  return file;
}

Result<void> Installation::checkStaged(const std::string& at, const std::string& version) const {
  const auto inside = InstalledBundle::read(at);
  if (!inside) return Error{"The update does not contain its version."};
  if (inside->version != version) {
    return Error{"The update is version ", visible(inside->version), ", not ", visible(version),
                 "."};
  }
  const auto installed = InstalledBundle::read(files_.prefix);
  if (!installed) return installed.error();
  if (std::is_lteq(compareVersions(version, installed->version))) {
    return Error{"Version ", visible(version), " is not newer than ", installed->version,
                 ", which is installed."};
  }
  if (inside->identifier != installed->identifier)
    return Error{"The update belongs to another program."};
  if (auto usable = checkCanBeUpdated(*inside); !usable) return usable;
  const std::string executable = joinPath(at, executableInPrefix);
  if (!isRegularFile(executable) || !isExecutableFile(executable)) {
    return Error{"The update contains no program."};
  }
  return {};
}

Result<void> Installation::stage(std::string_view archive, const std::string& version) {
  if (auto removed = removePath(files_.partial); !removed) return removed;
  if (auto made = makeDirectoryLike(files_.prefix, files_.partial); !made) return made;
  const FileDescriptor directory = openDirectory(files_.partial);
  if (!directory) return systemError(files_.partial, errno);

  GzipSource source(archive);
  ArchiveReader reader(source);
  auto outcome = unpack(reader, directory);
  if (outcome) outcome = checkStaged(files_.partial, version);
  if (outcome && ::syncfs(directory.get()) != 0) outcome = systemError(files_.partial, errno);
  if (outcome) outcome = removePath(files_.staged);
  if (outcome) outcome = renameTo(files_.partial, files_.staged);
  if (outcome) outcome = flush(files_.directory);
  if (!outcome) static_cast<void>(removePath(files_.partial));
  return outcome;
}

Result<void> Installation::swap(const std::string& version) {
  if (auto good = checkStaged(files_.staged, version); !good) return good;
  if (auto starts = checkItStarts(joinPath(files_.staged, executableInPrefix)); !starts) {
    return starts;
  }
  const auto inside = InstalledBundle::read(files_.staged);
  if (!inside) return inside.error();
  const UpdateMarker marker{.version = version, .displayVersion = inside->displayVersion};
  if (auto removed = removePath(files_.previous); !removed) return removed;
  if (auto written = writeMarker(files_.trial, marker); !written) return written;
  if (auto swapped = exchangeDirectories(files_.staged, files_.prefix); !swapped) {
    static_cast<void>(removePath(files_.trial));
    return swapped;
  }
  // The new version is installed, even if the following steps fail: `recover` repeats them.
  static_cast<void>(renameTo(files_.staged, files_.previous));
  static_cast<void>(flushBoth(files_));
  return {};
}

Result<void> Installation::rollBack() {
  const auto trial = readMarker(files_.trial);
  if (!trial) return Error{"No unconfirmed version is installed."};
  if (!isExecutableFile(joinPath(files_.previous, executableInPrefix))) {
    return Error{"There is no previous version to roll back to."};
  }
  const UpdateMarker marker{.version = trial->version, .displayVersion = trial->displayVersion};
  if (auto written = writeMarker(files_.failed, marker); !written) return written;
  if (auto swapped = exchangeDirectories(files_.previous, files_.prefix); !swapped) return swapped;
  if (auto flushed = flushBoth(files_); !flushed) return flushed;
  if (auto removed = removePath(files_.trial); !removed) return removed;
  return removePath(files_.previous);
}

}  // namespace zephyl
