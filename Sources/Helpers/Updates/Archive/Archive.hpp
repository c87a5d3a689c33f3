#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "System/Data/Result.hpp"

/// Reads the only archive format of updates: "ustar" tar, compressed by gzip. It contains an
/// installation relative to its prefix, so names begin with "bin/", "share/" and so on, optionally
/// after "./". Only directories, regular files and symbolic links that stay inside are permitted.
/// Every other type of tar entry is refused, not skipped.
///
/// This is a separate reader instead of a library for many archive formats, because it exposes
/// little code to an attacker, and features that the format lacks (devices, hard links, owners,
/// long names behind other names) need no checks.
namespace zephyl {

inline constexpr std::int64_t maxArchiveBytes = std::int64_t{512} << 20;
inline constexpr std::int64_t maxUnpackedBytes = std::int64_t{2} << 30;
inline constexpr std::size_t maxArchiveEntries = 20'000;
/// The maximum number of zeros after the end of an archive, with which packers fill up their last
/// record.
inline constexpr std::size_t maxArchivePadding = std::size_t{1} << 20;

/// A stream of bytes.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  /// Fills the front of `into` and returns the number of bytes, 0 at the end.
  virtual Result<std::size_t> read(std::span<char> into) = 0;
};

/// Reads bytes from memory, which must outlive it.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}
  Result<std::size_t> read(std::span<char> into) override;

 private:
  std::string_view bytes_;
};

/// Decompresses `compressed`, which must outlive it. Bytes after the end of the gzip stream are an
/// error.
class GzipSource final : public ByteSource {
 public:
  explicit GzipSource(std::string_view compressed);
  ~GzipSource() override;
  GzipSource(const GzipSource&) = delete;
  GzipSource& operator=(const GzipSource&) = delete;
  Result<std::size_t> read(std::span<char> into) override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// A file, directory or link in an archive.
struct ArchiveEntry {
  enum class Kind { file, directory, link };

  Kind kind = Kind::file;
  std::string path;    ///< relative, see `safePath`; empty for the archive's root
  std::string target;  ///< the target of a link, see `checkLink`
  bool executable = false;
  std::int64_t size = 0;  ///< the size of a file, in bytes

  bool operator==(const ArchiveEntry&) const = default;
};

/// Reads the entries of an archive one after the other. `source` must outlive it.
class ArchiveReader {
 public:
  explicit ArchiveReader(ByteSource& source) : source_(source) {}

  /// Skips the rest of the current file and returns the next entry, or nullopt at the end. An
  /// archive without an end mark is an error.
  Result<std::optional<ArchiveEntry>> next();
  /// Reads bytes of the file that `next` returned. Returns 0 at its end.
  Result<std::size_t> read(std::span<char> into);

 private:
  Result<void> readWhole(std::span<char> into);
  Result<void> skipRest();
  Result<void> finish();

  ByteSource& source_;
  std::int64_t left_ = 0;     // unread bytes of the current file
  std::int64_t padding_ = 0;  // bytes after the file to the end of its block
  std::int64_t total_ = 0;
  std::size_t entries_ = 0;
};

/// Returns `name` without a leading "./" and a trailing "/". Fails unless it is a path that stays
/// in the directory of the archive: relative, without empty, "." or ".." parts, and without control
/// characters.
Result<std::string> safePath(std::string_view name);
/// Fails unless a link at `path` to `target` leads to a path inside: relative, with ".." only at
/// the beginning, and not more often than `path` has parent directories.
Result<void> checkLink(std::string_view path, std::string_view target);
/// Returns whether the file at `path` of an installation belongs to this program: it is in a
/// directory "zephyl-tray", or is named after the program. Directories above it may be shared.
bool belongsToProgram(std::string_view path);

}  // namespace zephyl
