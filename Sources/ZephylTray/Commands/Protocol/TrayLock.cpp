#include "ZephylTray/Commands/Protocol/TrayLock.hpp"

#include <fstream>
#include <iterator>
#include <string_view>

#include <sys/stat.h>

#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

/// Reads a file of /proc, which has no size, so `readFile` cannot be used.
std::string contentsOf(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

std::optional<pid_t> lockHolder(const std::string& lockFile, ino_t inode,
                                const std::string& locks) {
  // "1: FLOCK  ADVISORY  WRITE 4711 08:01:131074 0 EOF". On some file systems the device differs
  // from that of stat, so only process and inode are compared.
  enum Column : std::size_t { kind = 1, process = 4, file = 5, columnCount = 8 };
  const auto holder = parseDecimal(lockFile.substr(0, lockFile.find('\n')));
  if (!holder || *holder <= 0) return std::nullopt;
  for (const auto line : splitNonEmpty(locks, '\n')) {
    const auto columns = splitNonEmpty(line, ' ');
    if (columns.size() < columnCount || columns[kind] != "FLOCK") continue;
    const auto number = columns[file].substr(columns[file].find_last_of(':') + 1);
    if (number == std::to_string(inode) && columns[process] == std::to_string(*holder)) {
      return static_cast<pid_t>(*holder);
    }
  }
  return std::nullopt;
}

std::optional<pid_t> lockHolder(const std::string& baseDirectory) {
  const auto path = joinPath(baseDirectory, "tray.lock");
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  const auto text = readFile(path);
  if (!text) return std::nullopt;
  return lockHolder(*text, status.st_ino, contentsOf("/proc/locks"));
}

}  // namespace zephyl
