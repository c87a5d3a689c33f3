#include "ZephylTray/Commands/Doctor/FileChecks.hpp"

#include <vector>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

using enum FindingState;

std::string nearestExisting(std::string path) {
  while (!fileExists(path) && path != "/" && path != ".") path = parentDirectory(path);
  return path;
}

Finding checkRuntimeDirectory() {
  const auto path = environmentVariable("XDG_RUNTIME_DIR").value_or("");
  if (!path.empty()) return checkDirectory("runtime directory", path);
  return {.check = "runtime directory",
          .state = FindingState::note,
          .message =
              "XDG_RUNTIME_DIR is not set; commands reach the tray through its base "
              "directory."};
}

}  // namespace

Finding checkSpace(const std::string& path) {
  constexpr unsigned long long required = 16ULL << 20;
  struct statvfs system {};
  Finding finding{.check = "disk space", .message = "There is enough free space."};
  if (::statvfs(nearestExisting(path).c_str(), &system) != 0) return finding;
  const auto free = static_cast<unsigned long long>(system.f_bavail) * system.f_frsize;
  if (free >= required) return finding;
  finding.state = wrong;
  finding.message =
      formatText("Only {} KiB are free at {}, so changes cannot be saved.", free / 1024, path);
  finding.advice = "Delete what you do not need.";
  return finding;
}

Finding checkDirectory(const std::string& check, const std::string& path) {
  Finding finding{.check = check, .message = formatText("{} is fine.", path)};
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    const auto parent = nearestExisting(path);
    finding.message = formatText("{} does not exist yet.", path);
    if (::access(parent.c_str(), W_OK | X_OK) == 0) return finding;
    finding.state = wrong;
    finding.message = formatText("{} cannot be created: {} is not writable.", path, parent);
    finding.advice = formatText("Make {} writable for you.", parent);
    return finding;
  }
  finding.state = wrong;
  if (!S_ISDIR(status.st_mode)) {
    finding.message = formatText("{} is not a directory.", path);
    finding.advice = "Move it away.";
  } else if (status.st_uid != ::geteuid()) {
    finding.message = formatText("{} belongs to another user (user id {}).", path, status.st_uid);
    finding.advice = formatText("Take ownership with `sudo chown $(id -u) {}`.", path);
  } else if (::access(path.c_str(), R_OK | W_OK | X_OK) != 0) {
    finding.message = formatText("{} is not writable.", path);
    finding.advice = formatText("Run `chmod u+rwx {}`.", path);
  } else if ((status.st_mode & S_IWOTH) != 0) {
    finding.message = formatText("{} is writable for every user.", path);
    finding.advice = formatText("Run `chmod o-w {}`.", path);
  } else {
    finding.state = FindingState::ok;
  }
  return finding;
}

Finding checkRegistry(const std::string& path) {
  Finding finding{.check = "registry", .message = "No server has been joined."};
  if (!fileExists(path)) return finding;
  const auto text = readFile(path);
  const auto entries = text ? json::decodeText<ServerList::Entries>(*text)
                            : Result<ServerList::Entries>(text.error());
  if (entries) {
    finding.message = formatText("{} contains {} servers.", path, entries->size());
    if (entries->size() == 1) finding.message = formatText("{} contains 1 server.", path);
    return finding;
  }
  finding.state = wrong;
  finding.message = formatText("{} could not be decoded ({}), so it counts as empty.", path,
                               entries.error().message);
  finding.advice =
      "Restore it from a backup, or join your servers again; the tray keeps a copy "
      "before it writes the file.";
  return finding;
}

Finding checkSettings() {
  const auto& defaults = Config::defaults();
  Finding finding{.check = "settings", .message = formatText("{} is fine.", defaults.path())};
  const auto values = defaults.values();
  if (values && values->empty()) finding.message = "No setting is stored.";
  if (!values) {
    finding.state = wrong;
    finding.message = formatText("The settings could not be decoded ({}), so they count as empty.",
                                 values.error().message);
    finding.advice = "Repair or remove that file.";
    return finding;
  }
  for (const auto* key : {"trayPort", "onboardingPort"}) {
    if (!values->contains(key) || defaults.integer(key)) continue;
    finding.state = wrong;
    finding.message = formatText("{} is not an integer, so it is ignored.", key);
    finding.advice = formatText("Set it with `zephyl-tray defaults write --integer {} PORT`.", key);
  }
  return finding;
}

Findings checkFiles() {
  const auto base = Servers::baseDir();
  return {checkDirectory("base directory", base),
          checkDirectory("settings directory", parentDirectory(Config::defaults().path())),
          checkRuntimeDirectory(),
          checkRegistry(joinPath(base, "servers.json")),
          checkSettings(),
          checkSpace(base)};
}

}  // namespace zephyl
