#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "System/Data/Result.hpp"

/// Reads the one kind of archive that updates come in: tar in the "ustar" form, compressed by
/// gzip. It holds an installation as it lies under its prefix, so that names begin with "bin/",
/// "share/" and the like, perhaps after "./". Directories, regular files and symbolic links that
/// stay inside are all there can be; whatever else a tar can hold is refused, not skipped.
///
/// A reader of its own rather than a library of all archive formats: what an attacker could reach
/// is this page of code, and what the form cannot say (devices, hard links, owners, long names
/// behind other names) needs no check.
namespace zephyl {

inline constexpr std::int64_t maxArchiveBytes = std::int64_t{512} << 20;
inline constexpr std::int64_t maxUnpackedBytes = std::int64_t{2} << 30;
inline constexpr std::size_t maxArchiveEntries = 20'000;
/// How many zeros may follow the end of an archive: packers fill up their last record.
inline constexpr std::size_t maxArchivePadding = std::size_t{1} << 20;

/// Bytes, one after the other.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  /// Fills the front of `into` and says how far; 0 at the end.
  virtual Result<std::size_t> read(std::span<char> into) = 0;
};

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}
  Result<std::size_t> read(std::span<char> into) override;

 private:
  std::string_view bytes_;
};

/// What gzip has compressed into `compressed`, which outlives it. Anything behind the end is an
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

struct ArchiveEntry {
  enum class Kind { file, directory, link };

  Kind kind = Kind::file;
  std::string path;    ///< relative, see `safePath`; empty: the archive's own root
  std::string target;  ///< of a link, see `checkLink`
  bool executable = false;
  std::int64_t size = 0;  ///< of a file, in bytes

  bool operator==(const ArchiveEntry&) const = default;
};

class ArchiveReader {
 public:
  explicit ArchiveReader(ByteSource& source) : source_(source) {}

  /// The next entry, whatever is left of the last one's bytes skipped; none at the end. An archive
  /// that stops without an end is an error.
  Result<std::optional<ArchiveEntry>> next();
  /// Bytes of the file that `next` returned; 0 at its end.
  Result<std::size_t> read(std::span<char> into);

 private:
  Result<void> readWhole(std::span<char> into);
  Result<void> skipRest();
  Result<void> finish();

  ByteSource& source_;
  std::int64_t left_ = 0;     // of the current file
  std::int64_t padding_ = 0;  // behind it, to the end of a block
  std::int64_t total_ = 0;
  std::size_t entries_ = 0;
};

/// `name` without "./" before and "/" behind it, when it is a path that cannot lead out of the
/// directory that it is unpacked in: relative, without empty, "." or ".." parts, and without
/// control characters.
Result<std::string> safePath(std::string_view name);
/// Whether a link at `path` to `target` leads to something inside: relative, ".." at the beginning
/// alone, and no more of it than `path` is deep.
Result<void> checkLink(std::string_view path, std::string_view target);
/// Whether what is at `path` of an installation belongs to this program: it lies in a directory
/// "zephyl-tray", or is named after the program. Directories above such may be shared with others.
bool belongsToProgram(std::string_view path);

}  // namespace zephyl
