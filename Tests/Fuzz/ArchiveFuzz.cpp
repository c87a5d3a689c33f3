#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "Helpers/Updates/Archive/Archive.hpp"

/// Reads any bytes as an archive, compressed or not. No path or link may leave the directory.

namespace {

/// Follows a path from a directory `depth` levels below the root. Returns false if it leaves the
/// root.
bool staysInside(std::ptrdiff_t depth, std::string_view path) {
  if (path.starts_with('/')) return false;
  while (!path.empty()) {
    const auto part = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(part.size() + 1, path.size()));
    depth += part == ".." ? -1 : 1;
    if (depth < 0) return false;
  }
  return true;
}

void readAll(zephyl::ByteSource& source) {
  zephyl::ArchiveReader reader(source);
  std::array<char, 1000> chunk{};
  for (;;) {
    const auto entry = reader.next();
    if (!entry || !*entry) return;
    const auto& [kind, path, target, executable, size] = **entry;
    const auto depth = std::count(path.begin(), path.end(), '/');
    if (!staysInside(0, path)) std::abort();
    if (kind == zephyl::ArchiveEntry::Kind::link && !staysInside(depth, target)) std::abort();
    std::int64_t got = 0;
    for (;;) {
      const auto count = reader.read(chunk);
      if (!count) return;
      if (*count == 0) break;
      got += static_cast<std::int64_t>(*count);
    }
    if (got != size) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  zephyl::MemorySource plain(bytes);
  readAll(plain);
  zephyl::GzipSource compressed(bytes);
  readAll(compressed);
  return 0;
}
