#include "ZephylTray/App/SingleOwnerLock.hpp"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

constexpr const char* inheritedVariable = "ZEPHYL_TRAY_LOCK";

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

/// Failures, as on a full disk, are ignored because the id is only informative.
void writeHolder(const FileDescriptor& file) {
  const std::string text = std::to_string(::getpid()) + "\n";
  if (::ftruncate(file.get(), 0) != 0) return;
  static_cast<void>(::pwrite(file.get(), text.data(), text.size(), 0) < 0);
}

/// Returns the lock file's descriptor that this process kept across an exec, or an empty one.
FileDescriptor adoptInherited(const std::string& path) {
  const auto number = parseDecimal(environmentVariable(inheritedVariable).value_or(""));
  ::unsetenv(inheritedVariable);
  constexpr long long maxDescriptors = 1 << 20;
  if (!number || *number <= STDERR_FILENO || *number > maxDescriptors) return {};
  FileDescriptor file(static_cast<int>(*number));
  // Any other file with this number must not be closed here.
  if (!isStillAt(file, path) || ::fcntl(file.get(), F_SETFD, FD_CLOEXEC) != 0) file.release();
  return file;
}

}  // namespace

std::variant<SingleOwnerLock, SingleOwnerLock::Taken, Error> SingleOwnerLock::acquire(
    const std::string& path) {
  if (const auto made = createDirectories(parentDirectory(path)); !made) return made.error();
  FileDescriptor file = adoptInherited(path);
  for (;; file.reset()) {
    if (!file) file.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file) return systemError(path, errno);
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK) return systemError(path, errno);
      return Taken{readHolder(file)};
    }
    // If the file was removed before it was locked, the lock has no effect.
    if (!isStillAt(file, path)) continue;
    writeHolder(file);
    return SingleOwnerLock(std::move(file));
  }
}

void SingleOwnerLock::keepAcrossExec() const {
  ::fcntl(file_.get(), F_SETFD, 0);
  ::setenv(inheritedVariable, std::to_string(file_.get()).c_str(), 1);
}

}  // namespace zephyl
