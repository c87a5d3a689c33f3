#include "Helpers/Updates/Archive/Extraction.hpp"

#include <array>
#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Helpers/Updates/Archive/FreeSpace.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::size_t chunk = std::size_t{64} << 10;
constexpr mode_t plainMode = 0644;
constexpr mode_t openMode = 0755;  // for directories and executable files

Result<void> writeAll(const FileDescriptor& file, std::string_view bytes, std::string_view path) {
  while (!bytes.empty()) {
    const auto count = ::write(file.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError(path, errno);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

/// Unpacks one archive. All paths are relative to the target directory.
class Unpacker {
 public:
  Unpacker(ArchiveReader& reader, const FileDescriptor& root, std::size_t maxDirectories)
      : reader_(reader), root_(root), maxDirectories_(maxDirectories) {}

  Result<void> unpack(const ArchiveEntry& entry) {
    if (entry.kind == ArchiveEntry::Kind::directory) {
      const auto made = openDirectory(entry.path);
      return made ? Result<void>() : made.error();
    }
    if (!belongsToProgram(entry.path)) {
      return Error{"The archive contains a file that does not belong to this program: ",
                   entry.path};
    }
    const auto slash = entry.path.rfind('/');
    const auto parent = slash == std::string::npos ? "" : entry.path.substr(0, slash);
    const auto name = entry.path.substr(slash + 1);
    const auto directory = openDirectory(parent);
    if (!directory) return directory.error();
    if (entry.kind == ArchiveEntry::Kind::file) return unpackFile(entry, *directory, name);
    if (::symlinkat(entry.target.c_str(), directory->get(), name.c_str()) != 0) {
      return systemError(entry.path, errno);
    }
    return {};
  }

 private:
  /// Opens a directory and creates missing parts of its path. Never follows a link.
  Result<FileDescriptor> openDirectory(std::string_view path) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    FileDescriptor current(::openat(root_.get(), ".", flags));
    for (const auto part : splitNonEmpty(path, '/')) {
      const std::string name(part);
      const bool made = ::mkdirat(current.get(), name.c_str(), openMode) == 0;
      if (!made && errno != EEXIST) return systemError(path, errno);
      FileDescriptor next(::openat(current.get(), name.c_str(), flags));
      if (!next) return systemError(path, errno);
      if (made && ::fchmod(next.get(), openMode) != 0) return systemError(path, errno);
      // An entry can imply a hundred directories, which the reader does not count.
      if (made && ++directories_ > maxDirectories_) {
        return Error{"The archive contains too many directories."};
      }
      current = std::move(next);
    }
    if (!current) return systemError(path, errno);
    return current;
  }

  Result<void> unpackFile(const ArchiveEntry& entry, const FileDescriptor& directory,
                          const std::string& name) {
    if (auto fits = checkFreeSpace(directory, entry.size); !fits) return fits;
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const mode_t mode = entry.executable ? openMode : plainMode;
    const FileDescriptor file(::openat(directory.get(), name.c_str(), flags, mode));
    if (!file || ::fchmod(file.get(), mode) != 0) return systemError(entry.path, errno);
    std::string buffer(chunk, '\0');
    for (;;) {
      const auto count = reader_.read(buffer);
      if (!count) return count.error();
      if (*count == 0) return {};
      auto written = writeAll(file, std::string_view(buffer).substr(0, *count), entry.path);
      if (!written) return written;
    }
  }

  ArchiveReader& reader_;
  const FileDescriptor& root_;
  const std::size_t maxDirectories_;
  std::size_t directories_ = 0;
};

}  // namespace

Result<void> unpack(ArchiveReader& reader, const FileDescriptor& into, std::size_t maxDirectories) {
  Unpacker unpacker(reader, into, maxDirectories);
  for (;;) {
    const auto entry = reader.next();
    if (!entry) return entry.error();
    if (!*entry) return {};
    if (auto unpacked = unpacker.unpack(**entry); !unpacked) return unpacked;
  }
}

}  // namespace zephyl
