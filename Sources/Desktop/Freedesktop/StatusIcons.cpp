#include "Desktop/Freedesktop/StatusIcons.hpp"

#include <algorithm>
#include <vector>

#include "StatusPixmaps.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

const char* iconName(StatusIcon icon) {
  return icon == StatusIcon::busy ? "com.zephyl.tray-busy-symbolic"
                                  : "com.zephyl.tray-idle-symbolic";
}

namespace {

bool holdsIcons(const std::string& themes) {
  return fileExists(joinPath(
      themes, std::string("hicolor/symbolic/apps/") + iconName(StatusIcon::idle) + ".svg"));
}

/// The directories that themes are looked for in.
std::vector<std::string> themeDirectories() {
  std::vector<std::string> directories;
  if (const auto own = directories::applicationSupport()) {
    directories.push_back(joinPath(*own, "icons"));
  }
  const auto named = environmentVariable("XDG_DATA_DIRS");
  const std::string shared = named && !named->empty() ? *named : "/usr/local/share:/usr/share";
  for (const auto directory : splitNonEmpty(shared, ':')) {
    directories.push_back(joinPath(directory, "icons"));
  }
  return directories;
}

}  // namespace

std::optional<IconLocation> locateIcons(const std::optional<std::string>& executable) {
  const auto usual = themeDirectories();
  if (std::any_of(usual.begin(), usual.end(), holdsIcons)) return IconLocation{};
  if (!executable) return std::nullopt;
  const auto beside = parentDirectory(*executable);
  for (const auto& themes :
       {joinPath(parentDirectory(beside), "share/icons"), joinPath(beside, "icons")}) {
    if (holdsIcons(themes)) return IconLocation{themes};
  }
  return std::nullopt;
}

std::array<IconPixmap, 4> pixmapsOf(StatusIcon icon) {
  if (icon == StatusIcon::busy) {
    return {
        {{22, images::busy22}, {24, images::busy24}, {32, images::busy32}, {48, images::busy48}}};
  }
  return {{{22, images::idle22}, {24, images::idle24}, {32, images::idle32}, {48, images::idle48}}};
}

}  // namespace zephyl
