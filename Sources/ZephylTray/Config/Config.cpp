#include "ZephylTray/Config/Config.hpp"

#include <filesystem>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"
#include "System/Files/UserDefaults.hpp"

namespace zephyl {

namespace {

constexpr std::int64_t defaultTrayPort = 8799;
constexpr std::int64_t defaultOnboardingPort = 8801;
constexpr auto trayPortKey = "trayPort";
constexpr auto defaultDesktopLaunchCommand = "pnpm --filter @zephyl/desktop dev";
constexpr auto rootMarker = "pnpm-workspace.yaml";
constexpr int searchedLevels = 12;

std::optional<std::int64_t> storedPort(const char* key) {
  auto stored = Config::defaults().integer(key);
  if (stored && *stored <= 0) stored.reset();
  return stored;
}

std::int64_t port(const char* key, const char* variable, std::int64_t fallback) {
  if (const auto stored = storedPort(key)) return *stored;
  const auto text = environmentVariable(variable);
  const auto number = text ? parseDecimal(*text) : std::nullopt;
  return number && *number > 0 ? *number : fallback;
}

std::optional<std::string> unlessEmpty(std::optional<std::string> text) {
  if (text && text->empty()) text.reset();
  return text;
}

/// Returns a non-empty text of the user defaults, else of the environment.
std::optional<std::string> storedText(const char* key, const char* variable) {
  auto stored = unlessEmpty(Config::defaults().string(key));
  return stored ? stored : unlessEmpty(environmentVariable(variable));
}

std::optional<std::string> configuredRoot() {
  return storedText("repoRoot", "ZEPHYL_REPO_ROOT");
}

std::optional<std::string> workingDirectory() {
  std::error_code failure;
  std::string path = std::filesystem::current_path(failure);
  if (failure) return std::nullopt;
  return path;
}

std::optional<std::string> directoryOfExecutable() {
  const auto& executable = Bundle::main().executable();
  if (!executable) return std::nullopt;
  return parentDirectory(*executable);
}

std::optional<std::string> rootAbove(std::string directory) {
  for (int level = 0; level < searchedLevels; ++level) {
    if (fileExists(joinPath(directory, rootMarker))) return directory;
    std::string parent = parentDirectory(directory);
    if (parent == directory) break;
    directory = std::move(parent);
  }
  return std::nullopt;
}

std::optional<std::string> ifExecutable(std::string path) {
  if (!isExecutableFile(path)) return std::nullopt;
  return path;
}

std::optional<std::string> resource(const char* name) {
  const auto resources = Bundle::main().resourceDirectory();
  if (!resources) return std::nullopt;
  return joinPath(*resources, name);
}

/// Returns whether the file at `path` belongs to the user or root and nobody else can write it. An
/// access control list that permits others to write shows in the group's mode.
bool isTrusted(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return false;
  const bool ours = status.st_uid == ::geteuid() || status.st_uid == 0;
  return ours && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Logs, once per directory, that its programs are not used.
void reportRefused(const std::string& root) {
  static std::mutex mutex;
  static std::set<std::string> reported;
  const std::scoped_lock lock(mutex);
  if (!reported.insert(root).second) return;
  log("programs in {} are not used, because other users can write to it or to its {}; to use them, "
      "set ZEPHYL_REPO_ROOT to that directory",
      root, rootMarker);
}

std::optional<std::string> developerBuild(const char* targetDirectory, const char* name) {
  const auto root = Config::programRoot();
  if (!root) return std::nullopt;
  const std::string target = joinPath(*root, targetDirectory);
  for (const auto* kind : {"release", "debug"}) {
    if (auto binary = ifExecutable(joinPath(joinPath(target, kind), name))) return binary;
  }
  return std::nullopt;
}

/// Returns the directories that may contain the tailnet programs, the preferred one first.
std::vector<std::string> tailnetDirectories() {
  std::vector<std::string> directories;
  if (auto bundled = Config::bundledRuntimeDir()) directories.push_back(std::move(*bundled));
  if (const auto root = Config::programRoot())
    directories.push_back(joinPath(*root, "packages/tailnet-client"));
  return directories;
}

std::optional<std::string> programIn(const std::vector<std::string>& directories,
                                     const std::string& name) {
  for (const auto& directory : directories) {
    if (auto program = ifExecutable(joinPath(directory, name))) return program;
  }
  return std::nullopt;
}

}  // namespace

UserDefaults& Config::defaults() {
  static auto* const defaults = new UserDefaults("com.zephyl.tray");  // see JSONFile
  return *defaults;
}

std::int64_t Config::trayPort() {
  return port(trayPortKey, "AGENT_TRAY_PORT", defaultTrayPort);
}

std::int64_t Config::onboardingPort() {
  return port("onboardingPort", "ZEPHYL_ONBOARD_PORT", defaultOnboardingPort);
}

std::string Config::apiBaseURL(std::int64_t port) {
  return formatText("http://127.0.0.1:{}", port);
}

std::string Config::repoRoot() {
  if (auto root = configuredRoot()) return *root;
  const auto current = workingDirectory();
  if (auto root = detectRepoRoot(directoryOfExecutable(), current)) return *root;
  return current.value_or(".");
}

std::optional<std::string> Config::detectRepoRoot(
    const std::optional<std::string>& executableDirectory,
    const std::optional<std::string>& currentDirectory) {
  for (const auto* start : {&executableDirectory, &currentDirectory}) {
    if (!start->has_value()) continue;
    if (auto root = rootAbove(**start)) return root;
  }
  return std::nullopt;
}

std::optional<std::string> Config::programRoot() {
  if (auto root = configuredRoot()) return root;
  const bool packaged = Bundle::main().identifier().has_value();
  auto root = detectRepoRoot(directoryOfExecutable(), packaged ? std::nullopt : workingDirectory());
  if (!root) return std::nullopt;
  if (isTrusted(*root) && isTrusted(joinPath(*root, rootMarker))) return root;
  reportRefused(*root);
  return std::nullopt;
}

std::string Config::desktopLaunchCommand() {
  return storedText("desktopLaunchCommand", "ZEPHYL_DESKTOP_LAUNCH_CMD")
      .value_or(defaultDesktopLaunchCommand);
}

std::string Config::legacyTailnetStateDir() {
  if (auto stored = unlessEmpty(defaults().string("tailnetStateDir"))) return *stored;
  if (const auto support = directories::applicationSupport()) {
    return joinPath(*support, "Zephyl/tailnet");
  }
  return joinPath(directories::temporary(), "zephyl-tailnet");
}

std::optional<std::string> Config::bundledRuntimeDir() {
  auto directory = resource("agent");
  if (directory && !isExecutableFile(joinPath(*directory, "zephyl-agent"))) directory.reset();
  return directory;
}

std::optional<std::string> Config::bundledDesktopApp() {
  auto app = resource("Zephyl Window.app");
  if (app && !fileExists(*app)) app.reset();
  return app;
}

std::optional<std::string> Config::tailnetBinary(const std::string& name) {
  return programIn(tailnetDirectories(), name);
}

bool Config::tailnetProgramsInstalled() {
  const auto directories = tailnetDirectories();
  return programIn(directories, "tailscaled") && programIn(directories, "zephyl-tailnet");
}

std::optional<std::string> Config::agentDevBinary() {
  return developerBuild("target", "zephyl-agent");
}

std::optional<std::string> Config::desktopDevBinary() {
  return developerBuild("packages/desktop/src-tauri/target", "zephyl-desktop");
}

}  // namespace zephyl
