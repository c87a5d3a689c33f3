#include "Desktop/Freedesktop/StatusIcons.hpp"

#include <algorithm>

#include "StatusPixmaps.hpp"
#include "System/Files/Directories.hpp"
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

}  // namespace

std::optional<IconLocation> locateIcons(const std::optional<std::string>& executable) {
  const auto usual = directories::data();
  const auto holds = [](const auto& directory) { return holdsIcons(joinPath(directory, "icons")); };
  if (std::any_of(usual.begin(), usual.end(), holds)) return IconLocation{};
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
