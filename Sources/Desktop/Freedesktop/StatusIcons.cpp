#include "Desktop/Freedesktop/StatusIcons.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

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

namespace {

// Shapes are distances from their edge, in the units of a picture that is 16 wide: positive
// inside. What both pictures show is what the images of the theme show.

double disc(double x, double y, double centerX, double centerY, double radius) {
  return radius - std::hypot(x - centerX, y - centerY);
}

double roundedBox(double x, double y, double left, double top, double right, double bottom) {
  constexpr double radius = 1.5;
  const double outsideX = std::abs(x - (left + right) / 2) - (right - left) / 2 + radius;
  const double outsideY = std::abs(y - (top + bottom) / 2) - (bottom - top) / 2 + radius;
  const double corner = std::hypot(std::max(outsideX, 0.0), std::max(outsideY, 0.0));
  return radius - corner - std::min(std::max(outsideX, outsideY), 0.0);
}

constexpr double badgeX = 11.5;
constexpr double badgeY = 11.5;

double folder(double x, double y) {
  const double body = roundedBox(x, y, 1, 3.5, 15, 14);
  const double tab = roundedBox(x, y, 1, 2, 7.25, 8);
  return std::min(std::max(body, tab), -disc(x, y, badgeX, badgeY, 4.9));
}

double person(double x, double y) {
  const double head = disc(x, y, badgeX, 9.7, 2);
  const double shoulders = std::min(disc(x, y, badgeX, 15.6, 3.6), 15.25 - y);
  return std::max(head, shoulders);
}

double gear(double x, double y) {
  constexpr int bars = 3;  // each makes two teeth
  double shape = disc(x, y, badgeX, badgeY, 2.9);
  for (int bar = 0; bar < bars; ++bar) {
    const double angle = std::numbers::pi * bar / bars;
    const double along = (x - badgeX) * std::cos(angle) + (y - badgeY) * std::sin(angle);
    const double across = (y - badgeY) * std::cos(angle) - (x - badgeX) * std::sin(angle);
    shape = std::max(shape, std::min(4.0 - std::abs(along), 0.95 - std::abs(across)));
  }
  return std::min(shape, -disc(x, y, badgeX, badgeY, 1.35));
}

struct Ink {
  std::uint32_t color;
  double coverage;
};

std::string pixel(Ink below, Ink above) {
  const double alpha = above.coverage + below.coverage * (1 - above.coverage);
  const double share = alpha > 0 ? above.coverage / alpha : 0;
  std::string bytes(1, static_cast<char>(std::lround(alpha * 255)));
  for (int shift = 16; shift >= 0; shift -= 8) {
    const double mixed =
        (above.color >> shift & 0xff) * share + (below.color >> shift & 0xff) * (1 - share);
    bytes += static_cast<char>(std::lround(mixed));
  }
  return bytes;
}

}  // namespace

std::string drawIcon(StatusIcon icon, int side) {
  constexpr std::uint32_t blue = 0x4a90e2;
  constexpr std::uint32_t orange = 0xe8890c;
  const double scale = side / 16.0;
  const auto coverage = [scale](double distance) {
    return std::clamp(distance * scale + 0.5, 0.0, 1.0);
  };
  std::string pixels;
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      const double x = (column + 0.5) / scale;
      const double y = (row + 0.5) / scale;
      const bool busy = icon == StatusIcon::busy;
      pixels += pixel({blue, coverage(folder(x, y))},
                      {busy ? orange : blue, coverage(busy ? gear(x, y) : person(x, y))});
    }
  }
  return pixels;
}

}  // namespace zephyl
