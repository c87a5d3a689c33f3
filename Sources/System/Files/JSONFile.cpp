#include "System/Files/JSONFile.hpp"

#include <cerrno>
#include <chrono>
#include <utility>

#include "System/Data/JSON.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

/// Two changes within this time may have the same timestamps, because the kernel's clock for files
/// advances in steps of up to 10 ms.
constexpr std::chrono::milliseconds settleTime{100};

bool isSame(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool isUnchanged(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
         isSame(one.st_mtim, other.st_mtim) && isSame(one.st_ctim, other.st_ctim);
}

/// Returns whether any later change will give the file another status change time.
bool isSettled(const struct stat& status) {
  using namespace std::chrono;
  const auto changed = seconds(status.st_ctim.tv_sec) + nanoseconds(status.st_ctim.tv_nsec);
  return system_clock::now().time_since_epoch() - changed > settleTime;
}

Result<JSONFile::Contents> decode(const std::string& path) {
  const auto text = readFile(path);
  if (!text) return text.error();
  auto value = json::parse(*text);
  if (!value) return Error{path + ": " + value.error().message};
  if (!value->is_object()) return Error{path + ": not an object"};
  return std::make_shared<const json::Object>(std::move(value->get_object()));
}

}  // namespace

Result<JSONFile::Contents> JSONFile::read(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return systemError(path, errno);
  {
    const std::scoped_lock lock(mutex_);
    if (cached_ && cached_->path == path && isUnchanged(cached_->status, status))
      return cached_->contents;
  }
  // The status is read before the contents, so a change in between only causes another read.
  const bool settled = isSettled(status);
  auto contents = decode(path);
  if (!contents || !settled) return contents;
  const std::scoped_lock lock(mutex_);
  cached_ = Cached{path, status, *contents};
  return contents;
}

}  // namespace zephyl
