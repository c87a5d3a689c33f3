#include "Common/PrivateFile.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

namespace zephyl::sandbox {
namespace fs = std::filesystem;
namespace {

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const auto written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool writePrivateFile(const std::string& path, std::string_view text) {
  ::unlink(path.c_str());
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) return false;
  const bool written = writeAll(descriptor, text) && ::fsync(descriptor) == 0;
  return ::close(descriptor) == 0 && written;
}

}  // namespace

Result<void> makePrivateDirectory(const std::string& directory) {
  std::error_code error;
  if (fs::create_directories(directory, error)) {
    fs::permissions(directory, fs::perms::owner_all, error);
  }
  if (error) return Failure{fmt::format("cannot make {}: {}", directory, error.message())};
  return {};
}

Result<void> replacePrivateFile(const std::string& path, std::string_view text) {
  const auto fresh = path + ".new";
  if (writePrivateFile(fresh, text) && std::rename(fresh.c_str(), path.c_str()) == 0) return {};
  Failure failure{fmt::format("cannot save {}: {}", path, std::strerror(errno))};
  ::unlink(fresh.c_str());
  return failure;
}

std::string setAside(const std::string& path) {
  auto aside = path + ".unreadable";
  std::error_code error;
  fs::rename(path, aside, error);
  return aside;
}

}  // namespace zephyl::sandbox
