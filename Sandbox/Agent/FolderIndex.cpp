#include "Agent/FolderIndex.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Common/Log.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl::sandbox {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t maxFiles = 200'000;
constexpr std::size_t maxBytesRead = 262'144;
constexpr std::size_t bytesProbed = 8'192;
constexpr std::int64_t chunkBytes = 2048;
constexpr std::array<std::string_view, 8> filledByTools{
    "node_modules", "build", "target", "dist", "out", "venv", "__pycache__", "CMakeFiles"};

bool isLeftOut(std::string_view directoryName) {
  return directoryName.starts_with('.') || std::find(filledByTools.begin(), filledByTools.end(),
                                                     directoryName) != filledByTools.end();
}

std::int64_t chunksOf(std::int64_t bytes) {
  return std::max<std::int64_t>((bytes + chunkBytes - 1) / chunkBytes, 1);
}

bool isText(std::string_view content) {
  return content.substr(0, bytesProbed).find('\0') == std::string_view::npos;
}

struct Content {
  std::int64_t bytes;
  std::string text;
};

/// Returns nullopt unless the path is a regular file.
std::optional<Content> readContent(const std::string& path) {
  // Non-blocking, so that a FIFO cannot hold the thread.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  Content content{.bytes = status.st_size, .text = {}};
  content.text.resize(std::min(maxBytesRead, static_cast<std::size_t>(status.st_size)));
  std::size_t filled = 0;
  while (filled < content.text.size()) {
    const auto length =
        ::read(file.get(), content.text.data() + filled, content.text.size() - filled);
    if (length < 0 && errno == EINTR) continue;
    if (length <= 0) break;
    filled += static_cast<std::size_t>(length);
  }
  content.text.resize(filled);
  return content;
}

bool isWordByte(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x80 || byte == '_' || (byte >= '0' && byte <= '9') ||
         (byte >= 'a' && byte <= 'z');
}

/// Both in lower case.
bool containsWord(std::string_view text, std::string_view word) {
  for (auto at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
    const auto end = at + word.size();
    const bool begins = at == 0 || !isWordByte(text[at - 1]);
    if (begins && (end == text.size() || !isWordByte(text[end]))) return true;
  }
  return false;
}

}  // namespace

FolderIndex::FolderIndex(std::string root) : root_(std::move(root)) {
  restart();
}

void FolderIndex::restart() {
  clear();
  complete_ = false;
  directories_.emplace_back();
}

void FolderIndex::applyChanges() {
  for (const auto& change : watch_.read()) apply(change);
}

void FolderIndex::apply(const FolderChange& change) {
  switch (change.kind) {
    case FolderChange::Kind::fileTouched:
      files_.insert(change.path);
      return;
    case FolderChange::Kind::fileGone:
      files_.erase(change.path);
      drop(change.path);
      return;
    case FolderChange::Kind::directoryAppeared:
      if (!isLeftOut(fs::path(change.path).filename().native()))
        directories_.push_back(change.path);
      return;
    case FolderChange::Kind::directoryGone:
      dropDirectory(change.path);
      return;
    case FolderChange::Kind::rootGone:
    case FolderChange::Kind::eventsLost:
      restart();
      return;
  }
}

void FolderIndex::step() {
  if (!files_.empty()) {
    readFile(files_.extract(files_.begin()).value());
  } else if (!directories_.empty()) {
    const auto directory = std::move(directories_.front());
    directories_.pop_front();
    scanDirectory(directory);
  }
}

void FolderIndex::scanDirectory(const std::string& directory) {
  const auto path = absolute(directory);
  if (!watch_.watch(directory, path) && errno == ENOSPC && !std::exchange(watchRefused_, true)) {
    log("too many directories to watch: some changes in {} will go unseen", root_);
  }
  std::error_code error;
  fs::directory_iterator entry(path, error);
  if (directory.empty()) missing_ = static_cast<bool>(error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const auto name = entry->path().filename().string();
    std::error_code ignored;
    if (entry->is_symlink(ignored)) continue;
    if (entry->is_directory(ignored)) {
      if (!isLeftOut(name)) directories_.push_back(within(directory, name));
    } else {
      files_.insert(within(directory, name));
    }
  }
}

void FolderIndex::readFile(const std::string& path) {
  const auto content = readContent(absolute(path));
  if (content && isText(content->text)) {
    add(path, content->bytes, content->text);
  } else {
    drop(path);
  }
}

void FolderIndex::add(const std::string& path, std::int64_t bytes, const std::string& text) {
  const auto contentHash = std::hash<std::string>()(text);
  const auto before = known_.find(path);
  if (before != known_.end()) {
    if (before->second.contentHash == contentHash && before->second.bytes == bytes) return;
    if (complete_) ++report_.rewritten;
    erase(before);
  }
  if (known_.size() >= maxFiles) return;
  known_.emplace(path, File{.bytes = bytes, .contentHash = contentHash});
  report_.bytes += bytes;
  report_.chunks += chunksOf(bytes);
  noteChange(path);
}

void FolderIndex::drop(const std::string& path) {
  const auto entry = known_.find(path);
  if (entry == known_.end()) return;
  erase(entry);
  noteChange(path);
}

void FolderIndex::dropDirectory(const std::string& directory) {
  watch_.forget(directory);
  std::erase_if(directories_, [&](const std::string& waiting) {
    return waiting == directory || waiting.starts_with(directory + '/');
  });
  const auto [firstWaiting, endWaiting] = contentOf(files_, directory);
  files_.erase(firstWaiting, endWaiting);
  auto [entry, end] = contentOf(known_, directory);
  while (entry != end) {
    noteChange(entry->first);
    erase(entry++);
  }
}

void FolderIndex::erase(std::map<std::string, File>::iterator entry) {
  report_.bytes -= entry->second.bytes;
  report_.chunks -= chunksOf(entry->second.bytes);
  known_.erase(entry);
}

void FolderIndex::clear() {
  watch_.forget("");
  directories_.clear();
  files_.clear();
  known_.clear();
  report_ = {.root = root_};
}

void FolderIndex::noteChange(const std::string& path) {
  if (!complete_) return;
  ++report_.changed;
  report_.changedPath = path;
}

IndexReport FolderIndex::report() {
  report_.ready = !hasWork();
  report_.walked = report_.ready && !std::exchange(complete_, complete_ || report_.ready);
  report_.missing = missing_;
  report_.files = static_cast<std::int64_t>(known_.size());
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
    const auto content = readContent(absolute(path));
    if (content && containsWord(lowerCased(content->text), wanted)) found.push_back(absolute(path));
  }
  return found;
}

std::string FolderIndex::absolute(const std::string& path) const {
  return path.empty() ? root_ : root_ + '/' + path;
}

}  // namespace zephyl::sandbox
