#include <array>
#include <filesystem>

#include <unistd.h>

#include "System/Files.hpp"
#include "System/Text.hpp"
#include "Updates/Archive.hpp"
#include "Updates/Installation.hpp"

namespace zephyl {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view packageLists = "/var/lib/dpkg/info";

/// Directories whose contents come from packages alone.
bool isSystemPath(std::string_view prefix) {
  constexpr std::array<std::string_view, 5> roots = {"/usr", "/nix", "/gnu", "/snap", "/app"};
  const std::string path = std::string(prefix) + "/";
  if (path.starts_with("/usr/local/")) return false;
  for (const auto root : roots) {
    if (path.starts_with(std::string(root) + "/")) return true;
  }
  return false;
}

/// Whether a package says that it installed this executable.
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

/// The first file below `prefix` that is not this program's.
std::optional<std::string> foreignFile(const std::string& prefix) {
  std::error_code failure;
  auto entry = fs::recursive_directory_iterator(prefix, failure);
  for (; !failure && entry != fs::recursive_directory_iterator(); entry.increment(failure)) {
    const auto status = entry->symlink_status(failure);
    const std::string path = entry->path().lexically_relative(prefix);
    if (fs::is_directory(status)) {
      if (entry->path().filename() == "zephyl-tray") entry.disable_recursion_pending();
    } else if (!belongsToProgram(path)) {
      return path;
    }
  }
  if (failure) return failure.message();
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
           ". Ask whoever installed it to update it.";
  }
  if (const auto foreign = foreignFile(prefix)) {
    return "The installation in " + visible(prefix) + " shares its folder with other files (" +
           visible(*foreign) + "). Unpack the new version over it yourself.";
  }
  return std::nullopt;
}

}  // namespace zephyl
