#include "Helpers/Updates/Program/ArchiveCache.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> archivesIn(const std::string& directory) {
  std::vector<fs::path> found;
  std::error_code failure;
  for (const auto& entry : fs::directory_iterator(directory, failure)) {
    if (entry.path().filename().string().starts_with("archive-")) found.push_back(entry.path());
  }
  return found;
}

bool isOld(const fs::path& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return true;
  const auto written = std::chrono::system_clock::from_time_t(status.st_mtime);
  return std::chrono::system_clock::now() - written > ArchiveCache::keptFor;
}

std::vector<fs::path> unwantedIn(const UpdateFiles& files, const std::string& offered) {
  auto found = archivesIn(files.directory);
  std::erase_if(found, [&](const fs::path& archive) {
    return !isOld(archive) && (offered.empty() || archive == files.archive(offered));
  });
  if (isDirectory(files.staged) && isOld(files.staged)) found.emplace_back(files.staged);
  return found;
}

void removeEach(const std::vector<fs::path>& paths) {
  for (const auto& path : paths) static_cast<void>(removePath(path));
}

}  // namespace

void ArchiveCache::keep(const FileDescriptor& file, const std::string& sha256) const {
  removeAll();
  const std::string unnamed = "/proc/self/fd/" + std::to_string(file.get());
  // If the archive cannot be kept, it is downloaded again.
  std::ignore = ::linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, files_.archive(sha256).c_str(),
                         AT_SYMLINK_FOLLOW);
}

bool ArchiveCache::copyTo(const FileDescriptor& file, const std::string& sha256,
                          std::int64_t length) const {
  constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const FileDescriptor kept(::open(files_.archive(sha256).c_str(), flags));
  struct stat status {};
  if (!kept || ::fstat(kept.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (status.st_size != length) return false;
  for (std::int64_t left = length; left > 0;) {
    const auto count = ::sendfile(file.get(), kept.get(), nullptr, static_cast<std::size_t>(left));
    if (count <= 0) return false;
    left -= count;
  }
  return true;
}

void ArchiveCache::removeAll() const {
  removeEach(archivesIn(files_.directory));
}

bool ArchiveCache::hasUnwanted(const std::string& offered) const {
  return !unwantedIn(files_, offered).empty();
}

void ArchiveCache::removeUnwanted(const std::string& offered) const {
  removeEach(unwantedIn(files_, offered));
  if (archivesIn(files_.directory).empty()) static_cast<void>(removePath(files_.staged));
}

}  // namespace zephyl
