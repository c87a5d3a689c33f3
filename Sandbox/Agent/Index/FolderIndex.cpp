#include "Agent/Index/FolderIndex.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Common/Log.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t maxFiles = 200'000;
constexpr std::size_t maxBytesRead = 262'144;
constexpr std::size_t bytesProbed = 8'192;
constexpr std::int64_t chunkBytes = 2048;
constexpr std::array<std::string_view, 8> filledByTools{
    "node_modules", "build", "target", "dist", "out", "venv", "__pycache__", "CMakeFiles"};
constexpr unsigned watchedEvents = IN_CREATE | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM |
                                   IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                                   IN_DONT_FOLLOW | IN_EXCL_UNLINK;

bool isLeftOut(std::string_view directoryName) {
  return directoryName.starts_with('.') ||
         std::ranges::find(filledByTools, directoryName) != filledByTools.end();
}

std::int64_t chunksOf(std::int64_t bytes) {
  return std::max<std::int64_t>((bytes + chunkBytes - 1) / chunkBytes, 1);
}

/// Returns the beginning of a file.
std::string readContent(const std::string& path) {
  // Non-blocking, so that a FIFO cannot block the thread.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  std::string content(maxBytesRead, '\0');
  std::size_t filled = 0;
  while (file && filled < content.size()) {
    const auto length = ::read(file.get(), content.data() + filled, content.size() - filled);
    if (length < 0 && errno == EINTR) continue;
    if (length <= 0) break;
    filled += static_cast<std::size_t>(length);
  }
  content.resize(filled);
  return content;
}

bool isText(std::string_view content) {
  return content.substr(0, bytesProbed).find('\0') == std::string_view::npos;
}

bool isWordByte(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x80 || byte == '_' || (byte >= '0' && byte <= '9') ||
         (byte >= 'a' && byte <= 'z');
}

/// Both texts must be in lower case.
bool containsWord(std::string_view text, std::string_view word) {
  for (auto at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
    const auto end = at + word.size();
    const bool begins = at == 0 || !isWordByte(text[at - 1]);
    if (begins && (end == text.size() || !isWordByte(text[end]))) return true;
  }
  return false;
}

/// Returns "directory/name", or only the name in the folder itself.
std::string within(const std::string& directory, const std::string& name) {
  return directory.empty() ? name : directory + '/' + name;
}

}  // namespace

FolderIndex::FolderIndex(std::string root)
    : root_(std::move(root)),
      watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      report_{.root = root_} {
  restart();
}

void FolderIndex::restart() {
  std::array<char, 32'768> events{};
  while (::read(watch_.get(), events.data(), events.size()) > 0) {
  }
  ++walk_;
  files_.clear();
  directories_.assign(1, "");
}

void FolderIndex::step() {
  if (!files_.empty()) {
    examineFile(files_.front());
    files_.pop_front();
  } else if (!directories_.empty()) {
    const auto directory = std::move(directories_.front());
    directories_.pop_front();
    scanDirectory(directory);
  }
  if (!hasWork()) endWalk();
}

void FolderIndex::scanDirectory(const std::string& directory) {
  const auto path = absolute(directory);
  const bool isWatched = ::inotify_add_watch(watch_.get(), path.c_str(), watchedEvents) >= 0;
  if (!isWatched && errno == ENOSPC && !std::exchange(isWatchRefused_, true)) {
    log("too many directories to watch: some changes in {} will not be noticed", root_);
  }
  std::error_code error;
  fs::directory_iterator entry(path, error);
  if (directory.empty()) isMissing_ = static_cast<bool>(error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const auto name = entry->path().filename().string();
    std::error_code ignored;
    if (entry->is_symlink(ignored)) continue;
    if (!entry->is_directory(ignored)) {
      files_.push_back(within(directory, name));
    } else if (!isLeftOut(name)) {
      directories_.push_back(within(directory, name));
    }
  }
}

void FolderIndex::examineFile(const std::string& path) {
  struct stat status {};
  const auto name = absolute(path);
  if (::lstat(name.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
  File file{.stamp = {.bytes = status.st_size,
                      .inode = static_cast<std::int64_t>(status.st_ino),
                      .changedNanoseconds =
                          status.st_ctim.tv_sec * nanosecondsPerSecond + status.st_ctim.tv_nsec},
            .walk = walk_};
  const auto before = known_.find(path);
  if (before != known_.end() && before->second.stamp == file.stamp) {
    before->second.walk = walk_;
    return;
  }
  const auto content = readContent(name);
  file.isText = isText(content);
  file.contentHash = std::hash<std::string>()(content);
  update(path, file);
}

void FolderIndex::update(const std::string& path, const File& file) {
  const auto before = known_.find(path);
  if (before == known_.end() && known_.size() >= maxFiles) return;
  const File old = before == known_.end() ? File() : before->second;
  known_[path] = file;
  const bool isSame = old.isText == file.isText && old.contentHash == file.contentHash &&
                      old.stamp.bytes == file.stamp.bytes;
  if (isSame) return;
  count(old, -1);
  count(file, 1);
  if (!isComplete_ || (!old.isText && !file.isText)) return;
  ++report_.changed;
  report_.rewritten += old.isText && file.isText ? 1 : 0;
  report_.changedPath = path;
}

void FolderIndex::count(const File& file, int sign) {
  if (!file.isText) return;
  report_.files += sign;
  report_.bytes += sign * file.stamp.bytes;
  report_.chunks += sign * chunksOf(file.stamp.bytes);
}

/// Removes the files that this walk has not found.
void FolderIndex::endWalk() {
  if (isMissing_) isComplete_ = false;
  for (auto entry = known_.begin(); entry != known_.end();) {
    if (entry->second.walk == walk_) {
      ++entry;
      continue;
    }
    update(entry->first, File{.walk = entry->second.walk});
    entry = known_.erase(entry);
  }
}

IndexReport FolderIndex::report() {
  report_.ready = !hasWork();
  report_.walked = report_.ready && !isComplete_;
  report_.missing = isMissing_;
  if (report_.ready) isComplete_ = !isMissing_;
  auto result = report_;
  report_.changed = 0;
  report_.rewritten = 0;
  report_.changedPath.clear();
  return result;
}

std::vector<std::string> FolderIndex::find(std::string_view word, std::size_t maxFound) const {
  std::vector<std::string> found;
  const auto wanted = lowerCased(word);
  if (wanted.empty()) return found;
  for (const auto& [path, file] : known_) {
    if (found.size() == maxFound) break;
    if (!file.isText) continue;
    if (containsWord(lowerCased(readContent(absolute(path))), wanted)) {
      found.push_back(absolute(path));
    }
  }
  return found;
}

std::string FolderIndex::absolute(const std::string& path) const {
  return path.empty() ? root_ : root_ + '/' + path;
}

}  // namespace zephyl::sandbox
