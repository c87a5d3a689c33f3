#include "Helpers/Updates/Archive/Archive.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::size_t blockSize = 512;
constexpr std::size_t maxPath = 255;
constexpr unsigned ownerMayExecute = 0100;

using Block = std::array<char, blockSize>;

/// The position of a field in a header.
struct Field {
  std::size_t offset;
  std::size_t size;
};
constexpr Field nameField{0, 100};
constexpr Field modeField{100, 8};
constexpr Field sizeField{124, 12};
constexpr Field checksumField{148, 8};
constexpr Field typeField{156, 1};
constexpr Field targetField{157, 100};
constexpr Field magicField{257, 6};
constexpr Field prefixField{345, 155};

std::string_view rawText(const Block& block, Field field) {
  return {block.data() + field.offset, field.size};
}

/// Returns the text up to the first null byte, if there is one.
std::string_view text(const Block& block, Field field) {
  const auto raw = rawText(block, field);
  return raw.substr(0, raw.find('\0'));
}

std::optional<std::int64_t> number(const Block& block, Field field) {
  std::string_view digits = text(block, field);
  while (digits.ends_with(' ')) digits.remove_suffix(1);
  while (digits.starts_with(' ')) digits.remove_prefix(1);
  std::int64_t value = 0;
  const auto [end, failure] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, 8);
  const bool whole = failure == std::errc() && end == digits.data() + digits.size();
  if (!whole || value < 0) return std::nullopt;
  return value;
}

bool isEmpty(const Block& block) {
  return std::ranges::all_of(block, [](char byte) { return byte == '\0'; });
}

/// Compares the checksum, in which the bytes of the checksum itself count as spaces.
bool hasGoodChecksum(const Block& block) {
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < blockSize; ++i) {
    const bool isOwn = i >= checksumField.offset && i < checksumField.offset + checksumField.size;
    sum += isOwn ? ' ' : static_cast<unsigned char>(block.at(i));
  }
  return number(block, checksumField) == sum;
}

std::string nameOf(const Block& block) {
  std::string name(text(block, nameField));
  const auto prefix = text(block, prefixField);
  return prefix.empty() ? name : std::string(prefix).append("/").append(name);
}

std::optional<ArchiveEntry::Kind> kindOf(char type) {
  switch (type) {
    case '0':
    case '\0':
      return ArchiveEntry::Kind::file;
    case '2':
      return ArchiveEntry::Kind::link;
    case '5':
      return ArchiveEntry::Kind::directory;
    default:
      return std::nullopt;
  }
}

Result<ArchiveEntry> parseHeader(const Block& block) {
  constexpr std::string_view magic("ustar\0", magicField.size);
  if (rawText(block, magicField) != magic || !hasGoodChecksum(block)) {
    return Error{"The archive is damaged, or not of the form \"ustar\"."};
  }
  const std::string name = nameOf(block);
  const auto kind = kindOf(block.at(typeField.offset));
  if (!kind) return Error{"The archive contains an entry that is not a file: ", visible(name)};
  auto path = safePath(name);
  if (!path) return path.error();
  const auto mode = number(block, modeField);
  const auto size = number(block, sizeField);
  if (!mode || !size) return Error{"The archive is damaged."};
  const bool isFile = *kind == ArchiveEntry::Kind::file;
  ArchiveEntry entry{.kind = *kind,
                     .path = std::move(*path),
                     .executable = (static_cast<unsigned>(*mode) & ownerMayExecute) != 0,
                     .size = isFile ? *size : 0};
  if (entry.path.empty() && *kind != ArchiveEntry::Kind::directory) {
    return Error{"The archive contains an entry without a name."};
  }
  if (!isFile && *size != 0) return Error{"The archive is damaged."};
  if (*kind == ArchiveEntry::Kind::link) {
    entry.target = text(block, targetField);
    if (auto inside = checkLink(entry.path, entry.target); !inside) return inside.error();
  }
  return entry;
}

bool isPlain(std::string_view text) {
  return isValidUTF8(text) && withoutControlCharacters(text) == text;
}

}  // namespace

Result<std::size_t> MemorySource::read(std::span<char> into) {
  const std::size_t count = std::min(into.size(), bytes_.size());
  std::copy_n(bytes_.begin(), count, into.begin());
  bytes_.remove_prefix(count);
  return count;
}

Result<std::optional<ArchiveEntry>> ArchiveReader::next() {
  if (auto skipped = skipRest(); !skipped) return skipped.error();
  Block block{};
  if (auto whole = readWhole(block); !whole) return whole.error();
  if (isEmpty(block)) {
    if (auto finished = finish(); !finished) return finished.error();
    return std::optional<ArchiveEntry>();
  }
  auto entry = parseHeader(block);
  if (!entry) return entry.error();
  if (++entries_ > maxArchiveEntries) return Error{"The archive contains too many files."};
  if (entry->size > maxUnpackedBytes - total_)
    return Error{"The archive is too large when unpacked."};
  total_ += entry->size;
  left_ = entry->size;
  padding_ = (static_cast<std::int64_t>(blockSize) - left_ % static_cast<std::int64_t>(blockSize)) %
             static_cast<std::int64_t>(blockSize);
  return std::optional(std::move(*entry));
}

Result<std::size_t> ArchiveReader::read(std::span<char> into) {
  const auto wanted = std::min<std::int64_t>(left_, static_cast<std::int64_t>(into.size()));
  if (wanted == 0) return std::size_t{0};
  auto count = source_.read(into.first(static_cast<std::size_t>(wanted)));
  if (!count) return count;
  if (*count == 0) return Error{"The archive is truncated."};
  left_ -= static_cast<std::int64_t>(*count);
  return count;
}

Result<void> ArchiveReader::readWhole(std::span<char> into) {
  while (!into.empty()) {
    const auto count = source_.read(into);
    if (!count) return count.error();
    if (*count == 0) return Error{"The archive is truncated."};
    into = into.subspan(*count);
  }
  return {};
}

Result<void> ArchiveReader::skipRest() {
  Block block{};
  while (left_ > 0) {
    if (const auto count = read(block); !count) return count.error();
  }
  const auto padding = static_cast<std::size_t>(std::exchange(padding_, 0));
  return readWhole(std::span(block).first(padding));
}

/// After the first empty block, only a limited number of zeros is permitted, because a few bytes of
/// gzip can expand to a million.
Result<void> ArchiveReader::finish() {
  Block block{};
  for (std::size_t padding = 0;;) {
    block.fill('\0');
    const auto count = source_.read(block);
    if (!count) return count.error();
    if (*count == 0) return {};
    padding += *count;
    if (!isEmpty(block) || padding > maxArchivePadding)
      return Error{"The archive continues after its end."};
  }
}

Result<std::string> safePath(std::string_view name) {
  const auto refused = [&] {
    return Error{"The archive contains an invalid path: ", visible(name)};
  };
  std::string_view path = name;
  if (path == "." || path == "./") return std::string();
  if (path.starts_with("./")) path.remove_prefix(2);
  if (path.ends_with('/')) path.remove_suffix(1);
  if (path.empty() || path.size() > maxPath || !isPlain(path)) return refused();
  for (std::size_t begin = 0; begin <= path.size();) {
    const auto end = std::min(path.find('/', begin), path.size());
    const auto part = path.substr(begin, end - begin);
    if (part.empty() || part == "." || part == "..") return refused();
    begin = end + 1;
  }
  return std::string(path);
}

Result<void> checkLink(std::string_view path, std::string_view target) {
  const auto refused = [&] {
    return Error{"The archive contains a link to a path outside of it: ", visible(path), " to ",
                 visible(target)};
  };
  if (target.empty() || target.size() > maxPath || !isPlain(target)) return refused();
  // Leading ".." parts lead to real directories, into which `path` was unpacked. A later ".." could
  // leave the target of another link.
  auto depth = std::ranges::count(path, '/');
  while (target.starts_with("../")) {
    if (depth-- == 0) return refused();
    target.remove_prefix(3);
  }
  if (const auto rest = safePath(target); !rest || rest->size() != target.size()) return refused();
  return {};
}

bool belongsToProgram(std::string_view path) {
  const auto parts = splitNonEmpty(path, '/');
  if (parts.empty()) return false;
  const bool inside =
      std::ranges::find(parts.begin(), parts.end() - 1, "zephyl-tray") != parts.end() - 1;
  return inside || parts.back().starts_with("zephyl-tray") ||
         parts.back().starts_with("com.zephyl.tray") || parts.back() == "icon-theme.cache";
}

}  // namespace zephyl
