#include "ZephylTray/SingleOwnerLock.hpp"

#include <array>
#include <cerrno>
#include <charconv>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "System/Files.hpp"

namespace zephyl {

namespace {

bool isStillAt(const FileDescriptor& file, const std::string& path) {
  struct stat held {
  }, named{};
  return ::fstat(file.get(), &held) == 0 && ::stat(path.c_str(), &named) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

std::optional<pid_t> readHolder(const FileDescriptor& file) {
  std::array<char, 32> text{};
  const auto length = ::pread(file.get(), text.data(), text.size(), 0);
  pid_t holder = 0;
  if (length <= 0) return std::nullopt;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + length, holder);
  if (failure != std::errc() || holder <= 0) return std::nullopt;
  return holder;
}

/// Only tells who has the lock, so that it does not matter when the disk is full.
void writeHolder(const FileDescriptor& file) {
  const std::string text = std::to_string(::getpid()) + "\n";
  if (::ftruncate(file.get(), 0) != 0) return;
  static_cast<void>(::pwrite(file.get(), text.data(), text.size(), 0) < 0);
}

}  // namespace

std::variant<SingleOwnerLock, SingleOwnerLock::Taken, Error> SingleOwnerLock::acquire(
    const std::string& path) {
  if (const auto made = createDirectories(parentDirectory(path)); !made) return made.error();
  for (;;) {
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file) return systemError(path, errno);
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK) return systemError(path, errno);
      return Taken{readHolder(file)};
    }
    // Somebody may have removed the file before it was locked; then it locks nothing.
    if (!isStillAt(file, path)) continue;
    writeHolder(file);
    return SingleOwnerLock(std::move(file));
  }
}

}  // namespace zephyl
