#include <array>
#include <cerrno>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "Helpers/Updates/Archive/Archive.hpp"
#include "Helpers/Updates/Program/Installation.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view packageLists = "/var/lib/dpkg/info";

/// Returns whether only packages install files in this directory.
bool isSystemPath(std::string_view prefix) {
  constexpr std::array<std::string_view, 5> roots = {"/usr", "/nix", "/gnu", "/snap", "/app"};
  const std::string path = std::string(prefix) + "/";
  if (path.starts_with("/usr/local/")) return false;
  for (const auto root : roots) {
    if (path.starts_with(std::string(root) + "/")) return true;
  }
  return false;
}

/// Returns whether an installed package lists this executable.
bool isListedByPackage(const std::string& executable) {
  std::error_code failure;
  for (const auto& entry : fs::directory_iterator(packageLists, failure)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("zephyl-tray") || !name.ends_with(".list")) continue;
    const auto list = readFile(entry.path());
    if (list && ("\n" + *list).find("\n" + executable + "\n") != std::string::npos) return true;
  }
  return false;
}

bool isWritable(const std::string& path) {
  return ::access(path.c_str(), W_OK | X_OK) == 0;
}

bool belongsToThisUser(const struct stat& status) {
  return status.st_uid == ::geteuid();
}

/// Returns whether anyone but the owner may write. The mode of a link has no meaning.
bool isOpenToOthers(const struct stat& status) {
  return !S_ISLNK(status.st_mode) && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

std::string foreignOwnerMessage(const std::string& path) {
  return visible(path) +
         " belongs to another user. Ask the owner of this installation to update it.";
}

std::string writableByOthersMessage(const std::string& path) {
  return "Other users may change " + visible(path) +
         ", so updates cannot be installed safely. Run: chmod go-w " + visible(shellQuoted(path));
}

std::optional<std::string> obstacleInParent(const std::string& prefix) {
  const std::string parent = parentDirectory(prefix);
  struct stat status {};
  if (::stat(parent.c_str(), &status) != 0) return systemError(parent, errno).message;
  if (!belongsToThisUser(status) && status.st_uid != 0) return foreignOwnerMessage(parent);
  if (isOpenToOthers(status)) return writableByOthersMessage(parent);
  return std::nullopt;
}

/// Returns the obstacle at `path`, which is the installation at `prefix` or a part of it.
std::optional<std::string> obstacleAt(const std::string& path, const std::string& prefix) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return systemError(path, errno).message;
  if (!belongsToThisUser(status)) return foreignOwnerMessage(path);
  if (isOpenToOthers(status)) return writableByOthersMessage(path);
  const std::string inside = fs::path(path).lexically_relative(prefix);
  if (S_ISDIR(status.st_mode) || belongsToProgram(inside)) return std::nullopt;
  return "The installation in " + visible(prefix) + " shares its folder with other files (" +
         visible(inside) + "). Unpack the new version over it yourself.";
}

std::optional<std::string> obstacleBelow(const std::string& prefix) {
  std::error_code failure;
  auto entry = fs::recursive_directory_iterator(prefix, failure);
  for (; !failure && entry != fs::recursive_directory_iterator(); entry.increment(failure)) {
    if (auto obstacle = obstacleAt(entry->path(), prefix)) return obstacle;
  }
  if (failure) return visible(prefix) + ": " + failure.message();
  return std::nullopt;
}

}  // namespace

std::optional<std::string> Installation::obstacle(const std::string& prefix) {
  const auto bundle = InstalledBundle::read(prefix);
  if (bundle && !bundle->updateCommand.empty()) {
    return "This installation is updated by your package manager. Run: " +
           visible(bundle->updateCommand);
  }
  if (isSystemPath(prefix) || isListedByPackage(joinPath(prefix, "bin/zephyl-tray"))) {
    return "This installation belongs to your package manager. Update the package zephyl-tray "
           "with it.";
  }
  if (!isWritable(prefix) || !isWritable(parentDirectory(prefix))) {
    return "You may not change the installation in " + visible(prefix) +
           ". Ask the user who installed it to update it.";
  }
  if (auto obstacle = obstacleInParent(prefix)) return obstacle;
  if (auto obstacle = obstacleAt(prefix, prefix)) return obstacle;
  return obstacleBelow(prefix);
}

}  // namespace zephyl
