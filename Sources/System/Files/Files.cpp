#include "System/Files/Files.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

namespace fs = std::filesystem;

constexpr mode_t privateMode = 0600;
constexpr std::size_t copyChunk = std::size_t{64} << 10;
constexpr int maxLinks = 40;   // the kernel's own limit
constexpr int maxCopies = 99;  // with the same timestamp in their names

/// Repeats `call` until no signal interrupts it, and returns its result.
template <typename Call>
auto uninterrupted(Call call) {
  auto outcome = call();
  while (outcome < 0 && errno == EINTR) outcome = call();
  return outcome;
}

std::string lastComponent(std::string_view path) {
  return std::string(path.substr(path.rfind('/') + 1));
}

FileDescriptor openForReading(const std::string& path) {
  // Non-blocking, because opening a FIFO would wait for its writer.
  constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  return FileDescriptor(uninterrupted([&] { return ::open(path.c_str(), flags); }));
}

struct RegularFile {
  FileDescriptor descriptor;
  std::size_t size = 0;
};

Result<RegularFile> openRegularFile(const std::string& path) {
  FileDescriptor descriptor = openForReading(path);
  struct stat status {};
  if (!descriptor || ::fstat(descriptor.get(), &status) != 0) return systemError(path, errno);
  if (S_ISDIR(status.st_mode)) return systemError(path, EISDIR);
  if (!S_ISREG(status.st_mode)) return Error{path + ": not a regular file"};
  return RegularFile{std::move(descriptor), static_cast<std::size_t>(status.st_size)};
}

/// Makes renames in a directory durable. Succeeds on a file system that cannot flush directories.
Result<void> flushDirectory(const std::string& path) {
  const FileDescriptor directory = openForReading(path);
  if (!directory) return systemError(path, errno);
  const int outcome = uninterrupted([&] { return ::fsync(directory.get()); });
  if (outcome != 0 && errno != EINVAL) return systemError(path, errno);
  return {};
}

/// Returns the path that a write to `path` modifies. It need not exist.
Result<std::string> followLinks(std::string path) {
  std::array<char, 4096> target{};
  for (int link = 0; link < maxLinks; ++link) {
    const auto length = ::readlink(path.c_str(), target.data(), target.size());
    if (length < 0) return path;
    const std::string_view text(target.data(), static_cast<std::size_t>(length));
    path = text.starts_with('/') ? std::string(text) : joinPath(parentDirectory(path), text);
  }
  return systemError(path, ELOOP);
}

/// A new file that is removed in the destructor unless it was kept. Errors name the target file.
class NewFile {
 public:
  NewFile(FileDescriptor descriptor, std::string path, std::string target)
      : descriptor_(std::move(descriptor)), path_(std::move(path)), target_(std::move(target)) {}
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (!kept_) ::unlink(path_.c_str());
  }

  Result<void> write(std::string_view bytes) {
    while (!bytes.empty()) {
      const auto written =
          uninterrupted([&] { return ::write(descriptor_.get(), bytes.data(), bytes.size()); });
      if (written < 0) return failure();
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
  }

  /// Sets the mode, closes the file and renames it to its target.
  Result<void> finish(Durability durability) {
    const bool flushed = durability == Durability::flushed;
    if (::fchmod(descriptor_.get(), privateMode) != 0) return failure();
    if (flushed && uninterrupted([&] { return ::fsync(descriptor_.get()); }) != 0) return failure();
    // Some write errors are reported only by close. An interrupted close has closed the descriptor.
    if (::close(descriptor_.release()) != 0 && errno != EINTR) return failure();
    if (path_ != target_ && ::rename(path_.c_str(), target_.c_str()) != 0) return failure();
    kept_ = true;
    if (flushed) flushName();
    return {};
  }

 private:
  /// The file already has its name, so a failure is logged and not returned.
  void flushName() const {
    if (const auto flushed = flushDirectory(parentDirectory(target_)); !flushed) {
      log("could not flush the directory of {}: {}", target_, flushed.error().message);
    }
  }
  [[nodiscard]] Error failure() const { return systemError(target_, errno); }

  FileDescriptor descriptor_;
  const std::string path_;
  const std::string target_;
  bool kept_ = false;
};

/// Creates the first of `path`, "<path>-2", "<path>-3" and so on that does not exist.
template <typename Create>
Result<std::string> createFree(const std::string& path, Create create) {
  std::string candidate = path;
  for (int number = 2; !create(candidate); ++number) {
    if (errno != EEXIST || number > maxCopies) return systemError(candidate, errno);
    candidate = path + "-" + std::to_string(number);
  }
  return candidate;
}

Result<void> copyContents(const FileDescriptor& from, const std::string& path, NewFile& to) {
  std::string buffer(copyChunk, '\0');
  for (;;) {
    const auto count =
        uninterrupted([&] { return ::read(from.get(), buffer.data(), buffer.size()); });
    if (count < 0) return systemError(path, errno);
    if (count == 0) return {};
    const auto bytes = std::string_view(buffer).substr(0, static_cast<std::size_t>(count));
    if (auto written = to.write(bytes); !written) return written;
  }
}

Result<std::string> copyTo(const std::string& path, const std::string& aside) {
  const auto original = openRegularFile(path);
  if (!original) return original.error();
  FileDescriptor descriptor;
  auto name = createFree(aside, [&](const std::string& candidate) {
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    descriptor.reset(::open(candidate.c_str(), flags, privateMode));
    return static_cast<bool>(descriptor);
  });
  if (!name) return name;
  NewFile copy(std::move(descriptor), *name, *name);
  auto copied = copyContents(original->descriptor, path, copy);
  if (copied) copied = copy.finish(Durability::flushed);
  if (!copied) return copied.error();
  return name;
}

Result<std::string> linkTo(const std::string& path, const std::string& aside) {
  return createFree(aside, [&](const std::string& name) {
    return ::linkat(AT_FDCWD, path.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
  });
}

void copyEntry(const fs::path& from, const fs::path& to, std::error_code& failure) {
  const auto type = fs::symlink_status(from, failure).type();
  if (type == fs::file_type::symlink) {
    fs::copy_symlink(from, to, failure);
  } else if (type == fs::file_type::directory) {
    fs::create_directory(to, from, failure);  // with the same permissions
  } else if (type == fs::file_type::regular) {
    fs::copy_file(from, to, failure);
  }
}

/// Copies a file, or a directory with its contents, except sockets and other special files.
Result<void> copyTree(const fs::path& from, const fs::path& to) {
  std::error_code failure;
  copyEntry(from, to, failure);
  if (!failure && fs::is_directory(fs::symlink_status(from, failure))) {
    auto entry = fs::recursive_directory_iterator(from, failure);
    while (!failure && entry != fs::recursive_directory_iterator()) {
      copyEntry(entry->path(), to / entry->path().lexically_relative(from), failure);
      if (!failure) entry.increment(failure);
    }
  }
  if (failure) return Error{from.string() + ": " + failure.message()};
  return {};
}

Result<void> moveAcrossFileSystems(const std::string& from, const std::string& to) {
  const std::string partial = to + ".partial";
  auto moved = copyTree(from, partial);
  if (moved && ::rename(partial.c_str(), to.c_str()) != 0) moved = systemError(to, errno);
  if (moved) return removePath(from);
  static_cast<void>(removePath(partial));
  return moved;
}

}  // namespace

std::string joinPath(std::string_view base, std::string_view component) {
  if (base.empty()) return std::string(component);
  if (component.empty()) return std::string(base);
  while (base.ends_with('/')) base.remove_suffix(1);
  while (component.starts_with('/')) component.remove_prefix(1);
  return std::string(base).append("/").append(component);
}

std::string parentDirectory(std::string_view path) {
  const auto separator = path.rfind('/');
  if (separator == std::string_view::npos) return ".";
  return std::string(separator == 0 ? "/" : path.substr(0, separator));
}

bool fileExists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

bool isSameFile(const std::string& one, const std::string& other) {
  struct stat first {
  }, second{};
  return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isExecutableFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

Result<std::string> readFile(const std::string& path) {
  const auto file = openRegularFile(path);
  if (!file) return file.error();
  if (file->size > maxReadableFile) return systemError(path, EFBIG);

  std::string contents(file->size + 1, '\0');  // one byte more, to reach the end without growing
  std::size_t length = 0;
  for (;;) {
    const auto count = uninterrupted([&] {
      return ::read(file->descriptor.get(), contents.data() + length, contents.size() - length);
    });
    if (count < 0) return systemError(path, errno);
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
    if (length > maxReadableFile) return systemError(path, EFBIG);
    if (length == contents.size()) contents.resize(length + copyChunk);
  }
  contents.resize(length);
  return contents;
}

Result<void> createDirectories(const std::string& path, mode_t mode) {
  if (isDirectory(path)) return {};
  const std::string parent = parentDirectory(path);
  if (parent != path && !isDirectory(parent)) {
    if (auto created = createDirectories(parent, mode); !created) return created;
  }
  if (::mkdir(path.c_str(), mode) == 0) {
    if (::chmod(path.c_str(), mode) != 0)
      return systemError(path, errno);  // because mkdir applies the umask
    return {};
  }
  const int failure = errno;
  if (isDirectory(path)) return {};  // another process created it meanwhile
  return systemError(path, failure == EEXIST ? ENOTDIR : failure);
}

Result<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                 Durability durability) {
  const auto target = followLinks(path);
  if (!target) return target.error();
  return replaceFile(*target, bytes, durability);
}

Result<void> replaceFile(const std::string& path, std::string_view bytes, Durability durability) {
  std::string temporary = joinPath(parentDirectory(path), "." + lastComponent(path) + ".XXXXXX");
  FileDescriptor descriptor(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!descriptor) return systemError(path, errno);
  NewFile file(std::move(descriptor), std::move(temporary), path);
  if (auto written = file.write(bytes); !written) return written;
  return file.finish(durability);
}

Result<std::string> copyAside(const std::string& path) {
  const std::string aside = path + ".unreadable-" + fileTimestamp(std::chrono::system_clock::now());
  auto copy = copyTo(path, aside);
  if (copy || copy.error().isShortage) return copy;
  const auto link = linkTo(path, aside);
  return link ? link : copy;
}

Result<void> movePath(const std::string& from, const std::string& to) {
  if (fileExists(to)) return systemError(to, EEXIST);
  if (::rename(from.c_str(), to.c_str()) == 0) return {};
  if (errno != EXDEV) return systemError(from, errno);
  return moveAcrossFileSystems(from, to);
}

Result<void> removePath(const std::string& path) {
  std::error_code failure;
  fs::remove_all(path, failure);
  if (failure) return Error{path + ": " + failure.message()};
  return {};
}

std::string fileTimestamp(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &local)};
}

}  // namespace zephyl
