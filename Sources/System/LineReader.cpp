#include "System/LineReader.hpp"

#include "System/Text.hpp"

namespace zephyl {

namespace {

/// A line is known to be too long, whether or not a CR ends it, with two bytes beyond the limit.
constexpr std::size_t maxKeptBytes = LineReader::maxLineBytes + 2;

/// The longest character of UTF-8 has this many bytes after its first.
constexpr std::size_t maxContinuationBytes = 3;

std::string_view withoutCarriageReturn(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

/// Cuts `line` at the limit, before the character that would straddle it.
std::string_view cut(std::string_view line) {
  if (line.size() <= LineReader::maxLineBytes) return line;
  std::size_t length = LineReader::maxLineBytes;
  const auto continuesCharacter = [&] { return (line[length] & 0xC0) == 0x80; };
  while (continuesCharacter() && length > LineReader::maxLineBytes - maxContinuationBytes) --length;
  return line.substr(0, length);
}

void addLine(std::vector<std::string>& lines, std::string_view line) {
  line = cut(line);
  if (!line.empty() && isValidUTF8(line)) lines.emplace_back(line);
}

}  // namespace

std::vector<std::string> LineReader::append(std::string_view bytes) {
  std::vector<std::string> lines;
  for (auto end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
    addLine(lines, withoutCarriageReturn(join(bytes.substr(0, end))));
    partial_.clear();
    bytes.remove_prefix(end + 1);
  }
  keep(bytes);
  return lines;
}

std::vector<std::string> LineReader::finish() {
  std::vector<std::string> lines;
  addLine(lines, partial_);
  partial_.clear();
  return lines;
}

std::string_view LineReader::join(std::string_view piece) {
  if (partial_.empty()) return piece;
  keep(piece);
  return partial_;
}

void LineReader::keep(std::string_view piece) {
  partial_.append(piece.substr(0, maxKeptBytes - partial_.size()));
}

}  // namespace zephyl
