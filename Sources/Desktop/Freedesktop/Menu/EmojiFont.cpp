#include "Desktop/Freedesktop/Menu/EmojiFont.hpp"

#include <algorithm>
#include <filesystem>

#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

constexpr int maxEntries = 20'000;

bool holdsEmoji(const std::string& fonts) {
  namespace fs = std::filesystem;
  std::error_code failure;
  fs::recursive_directory_iterator entry(fonts, fs::directory_options::skip_permission_denied,
                                         failure);
  for (int count = 0; !failure && entry != fs::end(entry) && count < maxEntries; ++count) {
    if (lowerCased(entry->path().filename().string()).find("emoji") != std::string::npos) {
      return true;
    }
    entry.increment(failure);
  }
  return false;
}

}  // namespace

bool hasEmojiFont() {
  return std::ranges::any_of(directories::data(), [](const auto& directory) {
    return holdsEmoji(joinPath(directory, "fonts"));
  });
}

}  // namespace zephyl
